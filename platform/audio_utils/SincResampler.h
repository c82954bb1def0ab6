/**
 * Converts interleaved 16-bit frames from one rate to another, for ever in exact step: the n-th
 * output frame stands at input time n * inRate / outRate, less latencyFrames().
 *
 * Invariant: mPhase < mRatio.out; the history's first frame is the first of the next window.
 * Threads:   one at a time. Only the constructor allocates; it throws std::bad_alloc.
 */
#pragma once

#include <cstddef>
#include <cstdint>

#include "LookAhead.h"
#include "PolyphaseFilter.h"
#include "RateRatio.h"
#include "SampleHistory.h"

namespace android {

class SincResampler {
public:
    SincResampler(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount);

    void reset();

    /** Takes and makes what LookAhead decides; the counts become the frames taken and made. */
    void convert(const int16_t* in, size_t& inFrameCount, int16_t* out, size_t& outFrameCount);

    /** Input frames by which the output lags behind. */
    uint32_t latencyFrames() const;

private:
    const RateRatio mRatio;
    const uint32_t mChannelCount;
    const PolyphaseFilter mFilter;
    LookAhead mLookAhead;
    SampleHistory mHistory;
    uint32_t mPhase = 0;  // of the next output, see PolyphaseFilter
};

}  // namespace android
