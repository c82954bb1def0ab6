#include "bench/support/Duel.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

// Long against the clock's step and an interrupt, short against changes of the processor's speed.
constexpr double kSliceNs = 300'000;

}  // namespace

void Duel::add(const std::string& name, double units, std::function<void()> run) {
    mContenders.push_back({name, units, std::move(run)});
}

double Duel::sliceNs(const Contender& contender) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < contender.runsASlice; ++i) {
        contender.run();
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin)
        .count();
}

double Duel::median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void Duel::measure(benchmark::State& state) {
    for (Contender& contender : mContenders) {
        while (sliceNs(contender) < kSliceNs / 2) {
            contender.runsASlice *= 2;
        }
    }
    for ([[maybe_unused]] auto _ : state) {
        for (Contender& contender : mContenders) {
            const double ns = sliceNs(contender);
            contender.nsAUnit.push_back(ns / contender.runsASlice / contender.units);
            if (&contender == mContenders.data()) {
                state.SetIterationTime(ns * 1e-9);
            }
        }
    }
    for (const Contender& contender : mContenders) {
        state.counters[contender.name] = median(contender.nsAUnit);
        if (&contender == mContenders.data()) {
            continue;
        }
        std::vector<double> ratios;
        for (size_t round = 0; round < contender.nsAUnit.size(); ++round) {
            ratios.push_back(mContenders.front().nsAUnit[round] / contender.nsAUnit[round]);
        }
        state.counters["ratio " + contender.name] = median(std::move(ratios));
    }
}

void registerDuel(const std::string& name, std::function<void(Duel&)> setUp) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [setUp = std::move(setUp)](benchmark::State& state) {
                                     Duel duel;
                                     setUp(duel);
                                     duel.measure(state);
                                 })
        ->Iterations(Duel::kRounds)
        ->UseManualTime();
}
