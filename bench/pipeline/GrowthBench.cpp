// How costs grow with the number of streams: of a stream's frame, of its memory, and of creating
// and destroying a stream.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/pipeline/SelfFedMix.h"
#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"
#include "bench/support/OneProcessor.h"
#include "processor/Resampler.h"

namespace {

using android::AudioPipeline;
using android::AudioStream;
using android::sp;

constexpr uint32_t kMixRate = 48000;
constexpr uint32_t kOtherRate = 44100;
constexpr size_t kManyStreams = 500;
constexpr size_t kBufferFrames = 2000;
constexpr size_t kFrameBytes = 4;
constexpr double kFlat = 1.25;

std::string rateName(uint32_t streamRate) {
    return streamRate == kMixRate ? "plain" : "converted";
}

std::string streamsName(size_t count) {
    return std::to_string(count) + " streams";
}

/** A frame of one stream, written, mixed and delivered, among more and more streams. */
void registerCost(uint32_t streamRate) {
    const std::vector<size_t> others{2, 4, 8, 16, 32, 64};
    const auto setUp = [=](Duel& duel) {
        constexpr size_t kStreamCycles = 1024;  // a turn, many to each wake-up of the worker
        std::vector<size_t> counts{1};
        counts.insert(counts.end(), others.begin(), others.end());
        for (const size_t count : counts) {
            const auto mix = std::make_shared<SelfFedMix>(count, streamRate);
            duel.addTimed(streamsName(count),
                          static_cast<double>(kStreamCycles * SelfFedMix::kFrames),
                          [mix, count] { return mix->run(kStreamCycles / count); });
        }
    };
    const auto check = [=](const Duel& duel, Bounds& bounds) {
        double highest = 0;
        for (const size_t count : others) {
            highest = std::max(highest, 1 / duel.ratio(streamsName(count)));
        }
        bounds.timeAtMost("highest to 1 stream", highest, kFlat);
    };
    registerDuel("growth/frame/" + rateName(streamRate), setUp, check);
}

sp<AudioStream> makeStream(uint32_t rate) {
    return new AudioStream(rate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                           static_cast<audio_output_flags_t>(0), kBufferFrames);
}

class SilentOutput : public android::AudioOutput {
public:
    SilentOutput()
        : AudioOutput(kMixRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      static_cast<audio_output_flags_t>(0)) {}
    ssize_t onDataProcessed(void* /*buffer*/, size_t byteCount) override {
        return static_cast<ssize_t>(byteCount);
    }
};

/** A pipeline with an output and streams that are closed. */
class Crowd {
public:
    Crowd(size_t streamCount, uint32_t rate) : mRate(rate) {
        if (mPipeline->registerOutput(new SilentOutput()) != 0) {
            throw std::runtime_error("the pipeline refused");
        }
        for (size_t i = 0; i < streamCount; ++i) {
            add();
        }
    }

    void add() {
        mStreams.push_back(makeStream(mRate));
        if (mPipeline->addAudioStream(mStreams.back()) != 0) {
            throw std::logic_error("a stream was refused");
        }
    }
    void drop(size_t index) {
        const auto place = mStreams.begin() + static_cast<ptrdiff_t>(index);
        (*place)->close();
        mPipeline->removeAudioStream(*place);
        mStreams.erase(place);
    }
    /** Adds a stream and removes it. */
    void addAndDrop() {
        add();
        drop(mStreams.size() - 1);
    }

private:
    const uint32_t mRate;
    const sp<AudioPipeline> mPipeline{new AudioPipeline()};
    std::vector<sp<AudioStream>> mStreams;
};

void registerChange(uint32_t streamRate) {
    const auto setUp = [=](Duel& duel) {
        // Each change wakes the worker, whose search of its list counts too.
        const auto here = std::make_shared<OneProcessor>();
        for (const size_t others : {kManyStreams, size_t{1}}) {
            const auto crowd = std::make_shared<Crowd>(others, streamRate);
            duel.add("beside " + std::to_string(others), 1, [crowd, here] { crowd->addAndDrop(); });
        }
    };
    registerDuel("growth/change/" + rateName(streamRate), setUp,
                 [](const Duel& duel, Bounds& bounds) {
                     bounds.timeAtMost("500 to 1", duel.ratio("beside 1"), kFlat);
                 });
}

size_t heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

size_t residentBytes() {
    FILE* const file = fopen("/proc/self/statm", "r");
    size_t all = 0;
    size_t resident = 0;
    if (file == nullptr || fscanf(file, "%zu %zu", &all, &resident) != 2) {
        throw std::runtime_error("/proc/self/statm can't be read");
    }
    fclose(file);
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

/** Of the converter between these rates, filter and all. */
size_t converterBytes(uint32_t rate) {
    const size_t before = heapBytes();
    const sp<android::Resampler> converter(
        new android::Resampler(rate, kMixRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO));
    return heapBytes() - before;
}

/** A stream's memory besides the buffers of its chain, and whether it grows while it plays. */
void measureMemory(benchmark::State& state, const std::string& name, uint32_t rate) {
    constexpr double kObjectBytes = 2048;  // of a stream, its stages, its places in lists
    constexpr size_t kRingBytes = kBufferFrames * kFrameBytes;
    constexpr size_t kCycles = 50;
    for ([[maybe_unused]] auto _ : state) {
        { const SelfFedMix warm(1, rate); }
        // A converted stream has another buffer, between the converter and the last stage.
        const size_t bufferBytes =
            rate == kMixRate ? kRingBytes : 2 * kRingBytes + converterBytes(rate);
        const auto aStream = [](size_t now, size_t before) {
            return (static_cast<double>(now) - static_cast<double>(before)) / kManyStreams;
        };
        const size_t heap = heapBytes();
        const size_t resident = residentBytes();
        SelfFedMix mix(kManyStreams, rate);
        const size_t playingHeap = heapBytes();
        const size_t playingResident = residentBytes();
        mix.run(kCycles);
        const size_t playedHeap = heapBytes();
        state.counters["buffer bytes"] = static_cast<double>(bufferBytes);
        state.counters["heap bytes"] = aStream(playingHeap, heap);
        state.counters["resident bytes"] = aStream(playingResident, resident);
        Bounds bounds(state, name);
        bounds.atMost("bytes beside buffers",
                      aStream(playingHeap, heap) - static_cast<double>(bufferBytes), kObjectBytes);
        bounds.atMost("bytes grown", aStream(playedHeap, playingHeap), 0);
    }
}

}  // namespace

void registerBenchmarks() {
    // Memory first: pages that others freed would count as resident already.
    for (const uint32_t rate : {kMixRate, kOtherRate}) {
        const std::string name = "growth/memory/" + rateName(rate);
        registerMeasurement(name, [=](benchmark::State& state) {
            measureMemory(state, name, rate);
        })->Iterations(1);
    }
    for (const uint32_t rate : {kMixRate, kOtherRate}) {
        registerCost(rate);
        registerChange(rate);
    }
}
