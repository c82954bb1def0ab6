#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "fuzz/soak/SoakCheck.h"
#include "pipeline/MixerThread.h"

using Random = std::independent_bits_engine<std::mt19937, 32, uint32_t>;

/** Receives the mix and takes a random time. */
class SoakOutput : public android::AudioOutput {
public:
    SoakOutput(uint32_t sampleRate, audio_format_t format, uint32_t seed)
        : AudioOutput(sampleRate, format, AUDIO_CHANNEL_OUT_STEREO, AUDIO_OUTPUT_FLAG_NONE),
          mRandom(seed) {}
    ssize_t onDataProcessed(void* /*buffer*/, size_t byteCount) override {
        mHeardFrames += byteCount / (2 * audio_bytes_per_sample(mFormat));
        // About ten times as fast as it would be heard: the writers keep up.
        std::this_thread::sleep_for(std::chrono::microseconds(mRandom() % 4000));
        return static_cast<ssize_t>(byteCount);
    }
    /** Since the last look; worker. */
    size_t takeHeardFrames() { return std::exchange(mHeardFrames, 0); }

private:
    Random mRandom;
    size_t mHeardFrames = 0;
};

/** A mixer that records how much every stream delivered in a cycle and how much was committed. */
class SoakMixer : public android::MixerThread {
public:
    explicit SoakMixer(SoakLedger& ledger) : mLedger(ledger) {}

    /** The frames of a stream in this cycle, and how many are followed; worker. */
    void note(const android::AudioStream* stream, size_t frameCount, size_t followed) {
        mDelivered.push_back(followed);
        if (frameCount == 0) {
            mEmpty.push_back(stream);
        } else {
            mShortest = std::min(mShortest, frameCount);
        }
    }

protected:
    ssize_t threadLoopProcess_l() override REQUIRES(mLock) {
        mDelivered.clear();
        mEmpty.clear();
        mShortest = SIZE_MAX;
        mClosingCounts.clear();
        for (const android::sp<android::AudioStream>& stream : mStreams) {
            mClosingCounts[stream.get()] = stream->closingCount();
        }
        const ssize_t committed = MixerThread::threadLoopProcess_l();
        for (const android::AudioStream* const stream : mEmpty) {
            // One that was paused or closed meanwhile shortens nothing.
            if (stream->isOpened() && stream->closingCount() == mClosingCounts[stream]) {
                mShortest = 0;
            }
        }
        const size_t kept = static_cast<size_t>(std::max<ssize_t>(committed, 0));
        for (const size_t frameCount : mDelivered) {
            mLedger.delivered += std::min(frameCount, kept);
            mLedger.discarded += frameCount - std::min(frameCount, kept);
        }
        if (kept > mShortest) {
            soakFail("a block of %zu frames, although a stream gave %zu", kept, mShortest);
        }
        for (const auto& output : mOutputs) {
            const size_t heard = static_cast<SoakOutput&>(*output).takeHeardFrames();
            if (heard != kept) {
                soakFail("an output heard %zu frames of the %zu in a block", heard, kept);
            }
        }
        mLedger.cycles += 1;
        return committed;
    }

private:
    SoakLedger& mLedger;
    std::vector<size_t> mDelivered;                                  // worker
    std::map<const android::AudioStream*, uint32_t> mClosingCounts;  // when the cycle began
    std::vector<const android::AudioStream*> mEmpty;                 // gave nothing
    size_t mShortest = SIZE_MAX;                                     // worker
};
