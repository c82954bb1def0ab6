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
        PolyphaseFilter::Position at{0, mPhase};
        const size_t frames =
            std::min(plan.producedFrames - made, mFilter.framesWithin(mHistory.frameCount(), at));
        mFilter.run(mHistory.samples(), mHistory.channelStride(), mChannelCount,
                    out + made * mChannelCount, frames, at);
        mHistory.skip(at.frame);
        mPhase = at.phase;
        made += frames;
    }
    inFrameCount = taken;
    outFrameCount = made;
}

}  // namespace android
