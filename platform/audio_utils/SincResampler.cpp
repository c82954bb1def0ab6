#include "SincResampler.h"

#include <algorithm>

namespace android {

namespace {

// Input taken in between two moves of the history; long enough to make the moves cheap.
constexpr size_t kHistoryChunkFrames = 1024;

size_t historyFrames(const PolyphaseFilter& filter, const LookAhead& lookAhead) {
    return filter.tapCount() + lookAhead.frameCount() +
           std::max(kHistoryChunkFrames, filter.tapCount());
}

int16_t toSample(float value) {
    const float limited = std::clamp(value, -32768.0f, 32767.0f);
    return static_cast<int16_t>(limited + (limited < 0 ? -0.5f : 0.5f));
}

}  // namespace

SincResampler::SincResampler(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount)
    : mRatio(inRateHz, outRateHz),
      mChannelCount(channelCount),
      mFilter(mRatio),
      mLookAhead(mRatio),
      mHistory(channelCount, historyFrames(mFilter, mLookAhead)) {
    reset();
}

void SincResampler::reset() {
    // The window's second half and the reserve are there before the first input frame, as silence:
    // already the first call yields all the output that its input is worth.
    mHistory.reset(mFilter.tapCount() + mLookAhead.frameCount());
    mLookAhead.reset();
    mPhase = 0;
}

uint32_t SincResampler::latencyFrames() const {
    return static_cast<uint32_t>(mFilter.tapCount() / 2) + mLookAhead.frameCount();
}

void SincResampler::convert(const int16_t* in, size_t& inFrameCount, int16_t* out,
                            size_t& outFrameCount) {
    const LookAhead::Plan plan =
        mLookAhead.plan(std::min(inFrameCount, LookAhead::kMaxCallFrames),
                        std::min(outFrameCount, LookAhead::kMaxCallFrames));
    size_t taken = 0;
    size_t made = 0;
    while (taken < plan.consumedFrames || made < plan.producedFrames) {
        taken += mHistory.append(in + taken * mChannelCount, plan.consumedFrames - taken);
        while (made < plan.producedFrames && mHistory.holds(mFilter.tapCount())) {
            makeFrame(out + made * mChannelCount);
            step();
            ++made;
        }
    }
    inFrameCount = taken;
    outFrameCount = made;
}

void SincResampler::makeFrame(int16_t* frame) const {
    for (uint32_t channel = 0; channel < mChannelCount; ++channel) {
        frame[channel] = toSample(mFilter.apply(mHistory.channel(channel), mPhase));
    }
}

void SincResampler::step() {
    size_t passed = mRatio.in / mRatio.out;
    const uint32_t fraction = mRatio.in % mRatio.out;
    if (mPhase < fraction) {
        mPhase += mRatio.out;
        ++passed;
    }
    mPhase -= fraction;
    mHistory.skip(passed);
}

}  // namespace android
