#include "SampleHistory.h"

#include <algorithm>

namespace android {

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
