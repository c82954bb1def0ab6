#include <exception>
#include <utility>

#include "bench/support/Benchmarks.h"
#include "bench/support/Bounds.h"

benchmark::internal::Benchmark* registerMeasurement(
    const std::string& name, std::function<void(benchmark::State&)> measure) {
    return benchmark::RegisterBenchmark(
        name.c_str(), [name, measure = std::move(measure)](benchmark::State& state) {
            try {
                measure(state);
            } catch (const std::exception& fault) {
                state.SkipWithError(fault.what());
                Bounds::breakOne(name + ": " + fault.what());
            }
        });
}

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    registerBenchmarks();
    const size_t count = benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // A filter that matches nothing would look like a passed measurement.
    return Bounds::areBroken() || count == 0 ? 1 : 0;
}
