#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

/**
 * Bounds of a benchmark's figures. A broken bound is reported on standard error and makes the
 * program fail; the figures are still written.
 *
 * The environment's STREAMPROXY_BENCH_SLACK multiplies the bounds on time, for busy machines.
 */
class Bounds {
public:
    Bounds(benchmark::State& state, std::string benchmark)
        : mState(state), mBenchmark(std::move(benchmark)) {}

    /** Each also keeps the figure, as the counter `name`. */
    void atMost(const std::string& name, double value, double bound);
    void atLeast(const std::string& name, double value, double bound);
    void timeAtMost(const std::string& name, double value, double bound);

    /** For a fault that is not a figure. */
    static void breakOne(const std::string& what);
    static bool areBroken() { return sBroken; }

private:
    void report(const std::string& name, double value, const char* relation, double bound);

    static bool sBroken;

    benchmark::State& mState;
    const std::string mBenchmark;
};
