// A cycle of warm streams, two of them resampled, asks the heap for nothing.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "pipeline/MixerThread.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<size_t> gHeapCalls{0};
thread_local bool tIsWorker = false;

void countCall() {
    if (tIsWorker && gCounting) {
        ++gHeapCalls;
    }
}

}  // namespace

// Not inlined: the compiler would see malloc() answer for new and warn of the mixture.
[[gnu::noinline]] void* operator new(size_t byteCount) {
    countCall();
    void* const storage = malloc(byteCount > 0 ? byteCount : 1);
    if (storage == nullptr) {
        throw std::bad_alloc();
    }
    return storage;
}
[[gnu::noinline]] void operator delete(void* storage) noexcept {
    countCall();
    free(storage);
}
[[gnu::noinline]] void operator delete(void* storage, size_t /*byteCount*/) noexcept {
    countCall();
    free(storage);
}

namespace {

using namespace android;

/** Lets a number of blocks pass without touching the heap itself. */
class CountingOutput : public AudioOutput {
public:
    CountingOutput()
        : AudioOutput(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      AUDIO_OUTPUT_FLAG_NONE) {}
    ssize_t onDataProcessed(void* /*buffer*/, size_t /*byteCount*/) override {
        tIsWorker = true;
        ++mBlocks;
        return 0;
    }
    std::atomic<int> mBlocks{0};
};

TEST(MixerAllocation, AWarmCycleTouchesNoHeap) {
    const sp<MixerThread> mixer(new MixerThread());
    std::vector<sp<AudioStream>> streams;
    for (const uint32_t rateHz : {48000U, 44100U, 96000U}) {
        streams.push_back(new AudioStream(rateHz, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                          AUDIO_OUTPUT_FLAG_NONE, 4000));
        ASSERT_EQ(OK, mixer->addStream(streams.back()));
    }
    const sp<CountingOutput> output(new CountingOutput());
    mixer->registerOutput(output.get());
    const std::vector<int16_t> audio(2 * 1920, 100);
    while (output->mBlocks < 60) {
        gCounting = output->mBlocks >= 5;
        const size_t blockFrameCounts[] = {960, 882, 1920};  // a cycle's worth of each
        for (size_t i = 0; i < streams.size(); ++i) {
            streams[i]->write(audio.data(), blockFrameCounts[i] * 2 * sizeof(int16_t));
        }
    }
    gCounting = false;
    mixer->exit();
    EXPECT_EQ(0U, gHeapCalls);
}

}  // namespace
