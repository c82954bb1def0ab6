#pragma once

#include <audio_utils/resampler.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "tools/audio/Handover.h"

namespace android {

/**
 * What one input adds to a 16-bit mix, by the library's arithmetic: what it writes, brought to the
 * mix's rate and 16-bit steps, times its gain.
 * Threads: handOver() on the feeder's; the rest on the mixer's. heldCount() when no more is mixed.
 */
class SumVoice {
public:
    explicit SumVoice(const Handover& handover);

    /** Frames on their way into the stream, silence too. */
    void handOver(const void* frames, int64_t frameCount);
    /** From the next block on the gain walks there. */
    void setGain(float left, float right);
    /** Adds the next frames to stereo sums in 16-bit steps; false: fewer were handed over. */
    bool addTo(int32_t* sums, int64_t frameCount);
    /** Samples beyond full scale that were held to it where they were narrowed to 16 bits. */
    int64_t heldCount() const { return mHeldCount; }

private:
    struct Release {
        void operator()(resampler_itfe* converter) const { release_resampler(converter); }
    };
    /** As the library walks: U4.28, a step per frame, to the end of the block that passes it. */
    struct Gain {
        int32_t now = 1 << 28;
        int32_t step = 0;
        int32_t target = 1 << 12;  // U4.12
        void set(float gain, int64_t rampFrames);
        void walk(int64_t frameCount);
    };

    void append(const void* frames, int64_t frameCount);
    void convert(int64_t frameCount);
    void addSteady(int32_t* sums, int64_t frameCount);
    void addWalking(int32_t* sums, int64_t frameCount);

    const Handover& mHandover;
    const std::unique_ptr<resampler_itfe, Release> mConverter;  // null: equal rates
    std::mutex mLock;
    std::vector<int32_t> mFrames;  // under mLock: stereo, 16-bit steps
    size_t mTakenCount = 0;        // under mLock: samples of them that were taken
    std::vector<int16_t> mOwn;     // in the input's rate, before the converter
    std::vector<int16_t> mConverted;
    std::vector<int32_t> mTaken;
    Gain mGains[2];
    int64_t mHeldCount = 0;
};

}  // namespace android
