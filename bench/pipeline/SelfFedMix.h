#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "pipeline/AudioOutput.h"
#include "pipeline/AudioPipeline.h"
#include "stream/AudioStream.h"

/**
 * A pipeline whose output's callback writes to its streams: the worker does all the work of the
 * writers, the mix and the output, and the time contains no other thread's wake-up.
 * 16-bit stereo at 48 kHz, every stream the same steady level, so that the mix is known.
 */
class SelfFedMix {
public:
    static constexpr size_t kFrames = 960;  // a cycle

    SelfFedMix(size_t streamCount, uint32_t streamRate);
    ~SelfFedMix();
    SelfFedMix(const SelfFedMix&) = delete;
    SelfFedMix& operator=(const SelfFedMix&) = delete;

    /** Lets the worker make so many blocks; it waits in the callback before and after. Returns the
     *  processor time in ns. Throws if a block was not whole or the last one not the sum. */
    double run(size_t cycleCount);

private:
    class Output : public android::AudioOutput {
    public:
        explicit Output(SelfFedMix& mix);
        ssize_t onDataProcessed(void* buffer, size_t byteCount) override;

    private:
        SelfFedMix& mMix;
    };

    void onBlock(const int16_t* samples, size_t byteCount);
    bool isSum(const int16_t* samples) const;

    std::vector<int16_t> mBlock;  // for each stream in a cycle
    std::vector<android::sp<android::AudioStream>> mStreams;
    const android::sp<Output> mOutput;
    const android::sp<android::AudioPipeline> mPipeline;
    size_t mCyclesLeft = 0;  // the worker's while it runs
    double mBeginNs = 0;     // of the worker's processor time
    double mTakenNs = 0;
    bool mSound = true;

    std::mutex mLock;
    std::condition_variable mChanged;
    size_t mWanted = 0;  // cycles that the worker is to begin with
    bool mIsDone = false;
    bool mStop = false;
};
