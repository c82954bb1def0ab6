#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

/**
 * What a benchmark's figures may be. A broken bound is told on standard error and makes the program
 * fail; the figures are written all the same.
 *
 * The environment's STREAMPROXY_BENCH_SLACK multiplies the bounds on time, for machines that do
 * other things too.
 */
class Bounds {
public:
    Bounds(benchmark::State& state, std::string benchmark)
        : mState(state), mBenchmark(std::move(benchmark)) {}

    /** Each also keeps the figure, as the counter `name`. */
    void atMost(const std::string& name, double value, double bound);
    void atLeast(const std::string& name, double value, double bound);
    void timeAtMost(const std::string& name, double value, double bound);

    /** For a fault that is no figure. */
    static void breakOne(const std::string& what);
    static bool areBroken() { return sBroken; }

private:
    void report(const std::string& name, double value, const char* relation, double bound);

    static bool sBroken;

    benchmark::State& mState;
    const std::string mBenchmark;
};
