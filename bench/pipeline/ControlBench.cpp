// Thousands of control calls a second while the mixer works: how long each takes, how many cycles
// begin meanwhile, and how long the cycles take.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/pipeline/PacedMix.h"
#include "bench/support/Benchmarks.h"
#include "bench/support/Bounds.h"
#include "bench/support/Distribution.h"
#include "bench/support/QuietLog.h"

namespace {

using Clock = PacedMix::Clock;

constexpr int kTurns = 8;
constexpr std::chrono::milliseconds kTurn{150};
constexpr int kCallsAlone = 2000;
// Between two calls of a thread, and what the system adds to a sleep. Without it a thread queues
// commands faster than the worker can handle them.
constexpr std::chrono::microseconds kPause{20};
// The worker and a call that waits for it hand the lock over by waking each other.
constexpr double kWakeUpsUs = 250;

const int gNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);

struct Call {
    std::string name;
    /** The i-th call, 0 when it succeeded. */
    std::function<int(PacedMix&, size_t i)> run;
    /** How often it takes the worker's lock: this many cycles may begin meanwhile. */
    double workerLocks;
    /** It waits for other pipeline calls, which may wait for the worker. */
    bool waitsForCalls;
};

int setVolume(PacedMix& mix, size_t i) {
    const float gain = i / 8 % 2 == 0 ? 0.5F : 1.0F;
    return audio_proxy_stream_set_volume(mix.stream(i), gain, gain);
}

int setParameters(PacedMix& mix, size_t i) {
    return audio_proxy_pipeline_set_parameters(
        mix.pipeline(), i % 2 == 0 ? "set_audio_delay=5" : "set_audio_delay=6");
}

int setLatency(PacedMix& mix, size_t i) {
    const int status = audio_proxy_stream_set_downstream_latency(mix.tunnel(), 20 + i % 2, 0);
    return audio_proxy_stream_get_latency(mix.stream(i)) == 45'000 ? status : -1;
}

int dumpStream(PacedMix& mix, size_t i) {
    return audio_proxy_stream_dump(mix.stream(i), gNowhere);
}

int dumpPipeline(PacedMix& mix, size_t /*i*/) {
    return audio_proxy_pipeline_dump(mix.pipeline(), gNowhere);
}

int createAndDestroy(PacedMix& /*mix*/, size_t /*i*/) {
    constexpr audio_proxy_config_t kConfig = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                              STREAMPROXY_CHANNEL_MASK_STEREO, 0};
    return destroy_audio_proxy_stream(create_audio_proxy_stream(&kConfig));
}

const std::vector<Call> kCalls = {
    {"volume", setVolume, 0, false},
    {"parameters", setParameters, 0, true},
    {"latency", setLatency, 0, false},
    {"stream dump", dumpStream, 0, false},
    {"pipeline dump", dumpPipeline, 1, true},
    // To learn the mix, to be listed, to be removed.
    {"create and destroy", createAndDestroy, 3, true},
};

double usSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

/** What one thread saw of its calls. */
struct Calls {
    Distribution us;
    Distribution cycles;
    bool haveFailed = false;

    void make(const Call& call, PacedMix& mix, size_t i) {
        const uint64_t before = mix.cycleCount();
        const Clock::time_point begin = Clock::now();
        const int status = call.run(mix, i);
        us.add(usSince(begin));
        cycles.add(static_cast<double>(mix.cycleCount() - before));
        haveFailed = haveFailed || status != 0;
    }
};

/** Its median µs while nothing is mixed. */
double ownWork(const Call& call) {
    PacedMix idle(false);
    Calls calls;
    for (size_t i = 0; i < kCallsAlone; ++i) {
        calls.make(call, idle, i);
    }
    return calls.us.median();
}

/** Each of the calls by its own thread, one after another, for a turn. */
void makeCalls(PacedMix& mix, const std::vector<Call>& made, std::vector<Calls>& seen) {
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (size_t which = 0; which < made.size(); ++which) {
        threads.emplace_back([&, which] {
            for (size_t i = 0; !isOver.load(std::memory_order_relaxed); ++i) {
                seen[which].make(made[which], mix, i);
                std::this_thread::sleep_for(kPause);
            }
        });
    }
    std::this_thread::sleep_for(kTurn);
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void measureControl(benchmark::State& state, const std::string& name,
                    const std::vector<Call>& made) {
    const QuietLog quiet;
    double ownUs = 0;
    double workerLocks = 0;
    for (const Call& call : made) {
        ownUs += ownWork(call);
        workerLocks += call.workerLocks;
    }
    std::vector<Calls> seen(made.size());
    Distribution undisturbed;
    Distribution disturbed;
    PacedMix mix(true);
    for ([[maybe_unused]] auto _ : state) {
        for (int turn = 0; turn < kTurns; ++turn) {
            mix.observe(&undisturbed);
            std::this_thread::sleep_for(kTurn);
            mix.observe(&disturbed);
            makeCalls(mix, made, seen);
        }
        mix.observe(nullptr);
    }
    Bounds bounds(state, name);
    double failures = mix.isSound() ? 0 : 1;
    for (size_t which = 0; which < made.size(); ++which) {
        const std::string prefix = made.size() > 1 ? made[which].name + " " : "";
        Calls& calls = seen[which];
        failures += calls.haveFailed ? 1 : 0;
        state.counters[prefix + "calls"] = static_cast<double>(calls.us.count());
        state.counters[prefix + "p50 us"] = calls.us.median();
        state.counters[prefix + "p99 us"] = calls.us.percentile(99);
        state.counters[prefix + "max us"] = calls.us.max();
        state.counters[prefix + "max cycles"] = calls.cycles.max();
        const double bound = made[which].waitsForCalls ? workerLocks : 0;
        bounds.atMost(prefix + "p90 cycles", calls.cycles.percentile(90), bound);
        // The call is done, but its thread has not run yet.
        bounds.timeAtMost(prefix + "p99 cycles", calls.cycles.percentile(99), bound + 1);
    }
    state.counters["own us"] = ownUs;
    state.counters["cycle p50 us"] = undisturbed.median();
    state.counters["cycle p99 us"] = undisturbed.percentile(99);
    state.counters["cycle max us"] = undisturbed.max();
    state.counters["called cycle p99 us"] = disturbed.percentile(99);
    state.counters["called cycle max us"] = disturbed.max();
    bounds.atMost("failures", failures, 0);
    state.counters["called cycle p50 us"] = disturbed.median();
    bounds.timeAtMost("lengthened us", disturbed.median() - undisturbed.median(),
                      ownUs + kWakeUpsUs);
}

}  // namespace

void registerBenchmarks() {
    const auto add = [](const std::string& name, const std::vector<Call>& calls) {
        registerMeasurement("control/" + name, [=](benchmark::State& state) {
            measureControl(state, "control/" + name, calls);
        })->Iterations(1);
    };
    for (const Call& call : kCalls) {
        add(call.name, {call});
    }
    add("all at once", kCalls);
}
