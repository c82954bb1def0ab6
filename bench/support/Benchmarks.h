#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

/** Each program defines this: main() calls it once, then runs what it registered. */
void registerBenchmarks();

/** Registers a benchmark. If it throws, it fails, and so does the program; the others run. */
benchmark::internal::Benchmark* registerMeasurement(const std::string& name,
                                                    std::function<void(benchmark::State&)> measure);
