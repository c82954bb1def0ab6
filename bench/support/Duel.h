#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "bench/support/Bounds.h"

/**
 * Contenders on the same work, measured in turn: a disturbance of the machine hits them all. One
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
    /** The same if `run` itself returns the ns that count. */
    void addTimed(const std::string& name, double units, std::function<double()> run);

    void measure(benchmark::State& state);

    /** After that: the first contender's time over that of `name`. */
    double ratio(const std::string& name) const;

private:
    struct Contender {
        std::string name;
        double units;
        std::function<double(int runs)> runNs;
        int runsASlice = 1;
        std::vector<double> nsAUnit = {};
    };

    double ratio(const Contender& contender) const;

    std::vector<Contender> mContenders;
};

/** Registers a duel: `setUp(duel)` adds the contenders, `check` sets the bounds. */
void registerDuel(const std::string& name, std::function<void(Duel&)> setUp,
                  std::function<void(const Duel&, Bounds&)> check = nullptr);
