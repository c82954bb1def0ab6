// The time from a write into an idle open stream to the output's callback, and the part of it that
// the worker slept as documented: it checks an idle stream every half cycle.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/Benchmarks.h"
#include "bench/support/Bounds.h"
#include "bench/support/Distribution.h"
#include "bench/support/QuietLog.h"
#include "pipeline/MixerThread.h"
#include "utils/Timers.h"

namespace {

using android::AudioStream;
using android::sp;

constexpr uint32_t kRate = 48000;
constexpr size_t kFrames = 960;  // a cycle
constexpr int kWrites = 500;
constexpr double kMsANs = 1e-6;

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

/** Records when the worker's sleep ends. */
class WatchedMixer : public android::MixerThread {
public:
    ssize_t threadLoopProcess_l() override NO_THREAD_SAFETY_ANALYSIS {
        const ssize_t frames = MixerThread::threadLoopProcess_l();
        if (frames <= 0) {
            mSleepEndNs = nowNs() + computeSleepTimeNs_l();
        }
        return frames;
    }
    /** For the worker: of its last sleep. */
    int64_t sleepEndNs() const { return mSleepEndNs; }

private:
    int64_t mSleepEndNs = 0;
};

/** Takes the time of each block. */
class StampingOutput : public android::AudioOutput {
public:
    struct Stamp {
        int64_t heardNs;
        int64_t sleepEndNs;
    };

    explicit StampingOutput(const WatchedMixer& mixer)
        : AudioOutput(kRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      static_cast<audio_output_flags_t>(0)),
          mMixer(mixer) {}

    ssize_t onDataProcessed(void* buffer, size_t byteCount) override {
        const int64_t heardNs = nowNs();
        const std::lock_guard<std::mutex> lock(mLock);
        mStamp = {heardNs, mMixer.sleepEndNs()};
        mFirstSample = *static_cast<const int16_t*>(buffer);
        mBytes += byteCount;
        mChanged.notify_all();
        return static_cast<ssize_t>(byteCount);
    }

    /** The stamp of the block that begins with this sample; throws if another comes, or none. */
    Stamp take(int16_t firstSample) {
        std::unique_lock<std::mutex> lock(mLock);
        const size_t wanted = 2 * sizeof(int16_t) * kFrames;
        if (!mChanged.wait_for(lock, std::chrono::seconds(5), [&] { return mBytes >= wanted; }) ||
            mBytes > wanted || mFirstSample != firstSample) {
            throw std::logic_error("the output did not hear what was written");
        }
        mBytes = 0;
        return mStamp;
    }

private:
    const WatchedMixer& mMixer;
    std::mutex mLock;
    std::condition_variable mChanged;
    Stamp mStamp = {};
    int16_t mFirstSample = 0;
    size_t mBytes = 0;
};

void addSpread(benchmark::State& state, const std::string& name, Distribution& values) {
    for (const int percent : {50, 90, 99}) {
        state.counters[name + " p" + std::to_string(percent)] = values.percentile(percent);
    }
    state.counters[name + " max"] = values.max();
}

/** In ms: all of it, what was left of the sleep when the write came, and the rest. */
void measureLatency(benchmark::State& state, const std::string& name, bool isPausedBetween) {
    const QuietLog quiet;
    const sp<WatchedMixer> mixer(new WatchedMixer());
    const sp<StampingOutput> output(new StampingOutput(*mixer));
    // Room for whole blocks: the ring's end cuts none in two.
    const sp<AudioStream> stream(
        new AudioStream(kRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                        static_cast<audio_output_flags_t>(0), 2 * kFrames));
    if (mixer->registerOutput(output.get()) != 0 || mixer->addStream(stream) != 0) {
        throw std::runtime_error("the mixer refused");
    }
    stream->open();
    std::minstd_rand random(1);
    Distribution all;
    Distribution asleep;
    Distribution rest;
    for ([[maybe_unused]] auto _ : state) {
        for (int16_t i = 0; i < kWrites; ++i) {
            if (isPausedBetween) {
                stream->pause();
            }
            // Anywhere in the worker's sleep, not in step with it.
            std::this_thread::sleep_for(std::chrono::microseconds(10'000 + random() % 10'000));
            const std::vector<int16_t> block(2 * kFrames, i);
            const int64_t writtenNs = nowNs();
            stream->write(block.data(), block.size() * sizeof(int16_t));
            const StampingOutput::Stamp stamp = output->take(i);
            const int64_t asleepNs = std::max<int64_t>(0, stamp.sleepEndNs - writtenNs);
            all.add(kMsANs * static_cast<double>(stamp.heardNs - writtenNs));
            asleep.add(kMsANs * static_cast<double>(asleepNs));
            rest.add(kMsANs * static_cast<double>(stamp.heardNs - writtenNs - asleepNs));
        }
    }
    mixer->exit();
    addSpread(state, "all", all);
    addSpread(state, "asleep", asleep);
    addSpread(state, "rest", rest);
    Bounds bounds(state, name);
    bounds.atMost("asleep max", asleep.max(), 10);
    bounds.timeAtMost("rest p50", rest.median(), 0.5);
    bounds.timeAtMost("rest p90", rest.percentile(90), 2);
}

}  // namespace

void registerBenchmarks() {
    for (const bool isPausedBetween : {false, true}) {
        const std::string name = isPausedBetween ? "latency/paused" : "latency/open";
        registerMeasurement(name, [=](benchmark::State& state) {
            measureLatency(state, name, isPausedBetween);
        })->Iterations(1);
    }
}
