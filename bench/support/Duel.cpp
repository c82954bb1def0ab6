#include "bench/support/Duel.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "bench/support/Benchmarks.h"
#include "bench/support/Distribution.h"

namespace {

// Long against the clock's step and an interrupt, short against changes of the processor's speed.
constexpr double kSliceNs = 300'000;

}  // namespace

void Duel::add(const std::string& name, double units, std::function<void()> run) {
    mContenders.push_back({name, units, [run = std::move(run)](int runs) {
                               const auto begin = std::chrono::steady_clock::now();
                               for (int i = 0; i < runs; ++i) {
                                   run();
                                   benchmark::ClobberMemory();
                               }
                               return std::chrono::duration<double, std::nano>(
                                          std::chrono::steady_clock::now() - begin)
                                   .count();
                           }});
}

void Duel::addTimed(const std::string& name, double units, std::function<double()> run) {
    mContenders.push_back({name, units, [run = std::move(run)](int runs) {
                               double ns = 0;
                               for (int i = 0; i < runs; ++i) {
                                   ns += run();
                               }
                               return ns;
                           }});
}

void Duel::measure(benchmark::State& state) {
    for (Contender& contender : mContenders) {
        while (contender.runNs(contender.runsASlice) < kSliceNs / 2) {
            contender.runsASlice *= 2;
        }
    }
    for ([[maybe_unused]] auto _ : state) {
        for (Contender& contender : mContenders) {
            const double ns = contender.runNs(contender.runsASlice);
            contender.nsAUnit.push_back(ns / contender.runsASlice / contender.units);
            if (&contender == mContenders.data()) {
                state.SetIterationTime(ns * 1e-9);
            }
        }
    }
    for (const Contender& contender : mContenders) {
        state.counters[contender.name] = Distribution(contender.nsAUnit).median();
        if (&contender != mContenders.data()) {
            state.counters["ratio " + contender.name] = ratio(contender);
        }
    }
}

double Duel::ratio(const Contender& contender) const {
    Distribution ratios;
    for (size_t round = 0; round < contender.nsAUnit.size(); ++round) {
        ratios.add(mContenders.front().nsAUnit[round] / contender.nsAUnit[round]);
    }
    return ratios.median();
}

double Duel::ratio(const std::string& name) const {
    for (const Contender& contender : mContenders) {
        if (contender.name == name) {
            return ratio(contender);
        }
    }
    throw std::out_of_range("nobody is called " + name);
}

void registerDuel(const std::string& name, std::function<void(Duel&)> setUp,
                  std::function<void(const Duel&, Bounds&)> check) {
    registerMeasurement(
        name,
        [name, setUp = std::move(setUp), check = std::move(check)](benchmark::State& state) {
            Duel duel;
            setUp(duel);
            duel.measure(state);
            if (check != nullptr) {
                Bounds bounds(state, name);
                check(duel, bounds);
            }
        })
        ->Iterations(Duel::kRounds)
        ->UseManualTime();
}
