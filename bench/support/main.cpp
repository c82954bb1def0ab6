#include <benchmark/benchmark.h>

#include "bench/support/Benchmarks.h"
#include "bench/support/Bounds.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    registerBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return Bounds::areBroken() ? 1 : 0;
}
