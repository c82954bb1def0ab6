/**
 * The input that windows still reach, one contiguous run of float samples a channel.
 *
 * Invariant: mStart <= mFrameCount <= mCapacity.
 * Threads:   one at a time. Only the constructor allocates; it throws std::bad_alloc.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

class SampleHistory {
public:
    SampleHistory(uint32_t channelCount, size_t capacityFrames);

    /** Holds `frameCount` frames of silence and nothing else. */
    void reset(size_t frameCount);

    /** Takes up to `frameCount` interleaved frames; how many it took. Moves what is held. */
    size_t append(const int16_t* frames, size_t frameCount);

    size_t frameCount() const { return mFrameCount - mStart; }
    /** The first channel; each of the others lies channelStride() samples behind the one before. */
    const float* samples() const { return mSamples.data() + mStart; }
    size_t channelStride() const { return mCapacity; }

    /** The first `frameCount` frames, all of them held, are not needed any more. */
    void skip(size_t frameCount) { mStart += frameCount; }

private:
    void dropSkipped();

    const uint32_t mChannelCount;
    const size_t mCapacity;
    size_t mStart = 0;
    size_t mFrameCount = 0;  // with those before mStart
    std::vector<float> mSamples;
};

}  // namespace android
