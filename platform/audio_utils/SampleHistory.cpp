#include "SampleHistory.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace android {

namespace {

/** Four frames at a time, where the first channel is the lower half of a 32-bit word. */
void splitStereo(const int16_t* frames, float* left, float* right, size_t frameCount) {
    static_assert(std::endian::native == std::endian::little);
    using Ints [[gnu::vector_size(16)]] = int32_t;
    using Floats [[gnu::vector_size(16)]] = float;
    size_t frame = 0;
    for (; frame + 4 <= frameCount; frame += 4) {
        Ints words;
        memcpy(&words, frames + 2 * frame, sizeof words);
        const auto lefts = __builtin_convertvector((words << 16) >> 16, Floats);
        const auto rights = __builtin_convertvector(words >> 16, Floats);
        memcpy(left + frame, &lefts, sizeof lefts);
        memcpy(right + frame, &rights, sizeof rights);
    }
    for (; frame < frameCount; ++frame) {
        left[frame] = frames[2 * frame];
        right[frame] = frames[2 * frame + 1];
    }
}

}  // namespace

SampleHistory::SampleHistory(uint32_t channelCount, size_t capacityFrames)
    : mChannelCount(channelCount),
      mCapacity(capacityFrames),
      mSamples(channelCount * capacityFrames) {}

void SampleHistory::reset(size_t frameCount) {
    std::fill(mSamples.begin(), mSamples.end(), 0.0f);
    mStart = 0;
    mFrameCount = frameCount;
}

size_t SampleHistory::append(const int16_t* frames, size_t frameCount) {
    if (mCapacity - mFrameCount < frameCount) {
        dropSkipped();
    }
    const size_t taken = std::min(frameCount, mCapacity - mFrameCount);
    if (mChannelCount == 2) {
        splitStereo(frames, mSamples.data() + mFrameCount,
                    mSamples.data() + mCapacity + mFrameCount, taken);
        mFrameCount += taken;
        return taken;
    }
    for (uint32_t channel = 0; channel < mChannelCount; ++channel) {
        float* samples = &mSamples[channel * mCapacity] + mFrameCount;
        const int16_t* source = frames + channel;
        for (size_t frame = 0; frame < taken; ++frame) {
            samples[frame] = source[frame * mChannelCount];
        }
    }
    mFrameCount += taken;
    return taken;
}

void SampleHistory::dropSkipped() {
    for (uint32_t channel = 0; channel < mChannelCount; ++channel) {
        float* samples = &mSamples[channel * mCapacity];
        std::copy(samples + mStart, samples + mFrameCount, samples);
    }
    mFrameCount -= mStart;
    mStart = 0;
}

}  // namespace android
