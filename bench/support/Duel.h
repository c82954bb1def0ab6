#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

/**
 * Contenders on the same work, measured by turns: what disturbs the machine disturbs them all. One
 * iteration of the benchmark is one round, in which each contender runs for a slice of time; the
 * figures are each one's median over the rounds, as counters "NAME" in ns a unit of work.
 *
 * The first contender is the library; "ratio NAME" is its time over that of NAME, round by round,
 * the median of those.
 */
class Duel {
public:
    static constexpr int kRounds = 41;

    /** `run` does `units` units of work. */
    void add(const std::string& name, double units, std::function<void()> run);

    void measure(benchmark::State& state);

private:
    struct Contender {
        std::string name;
        double units;
        std::function<void()> run;
        int runsASlice = 1;
        std::vector<double> nsAUnit = {};
    };

    static double sliceNs(const Contender& contender);
    static double median(std::vector<double> values);

    std::vector<Contender> mContenders;
};

/** Registers a duel: `setUp(duel)` adds the contenders. */
void registerDuel(const std::string& name, std::function<void(Duel&)> setUp);
