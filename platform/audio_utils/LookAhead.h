/**
 * Decides how many frames one call consumes and produces. It counts only; it sees no sample.
 *
 * After m output frames it has taken floor(m * in / out) input frames, as long as the caller has
 * them: whoever supplies exactly the input of the output that is asked for never finds the input
 * used up before the output is there. But a ring hands its frames over in two regions, and the one
 * before its end may be a single frame: less than an output frame takes where the rate is lowered.
 * So that it yields output all the same, the converter runs a few frames behind its input and
 * borrows from this reserve; the region that follows pays it back.
 *
 * Invariant: 0 <= mFraction < mRatio.out; mDebt >= 0.
 * Threads:   one at a time.
 */
#pragma once

#include <cstddef>
#include <cstdint>

#include "RateRatio.h"

namespace android {

class LookAhead {
public:
    struct Plan {
        size_t consumedFrames;
        size_t producedFrames;
    };

    explicit LookAhead(const RateRatio& ratio);

    /** Both counts are at most kMaxCallFrames. */
    Plan plan(size_t offeredFrames, size_t roomFrames);
    void reset();

    /** Input frames of the reserve: the part of the latency that is not the filter's. */
    uint32_t frameCount() const { return mFrameCount; }
    static constexpr size_t kMaxCallFrames = size_t{1} << 30;

private:
    int64_t outputsPossible(int64_t offered) const;
    int64_t outputsOwing(int64_t debt, int64_t offered) const;
    int64_t chooseOutputs(int64_t offered, int64_t room);

    const RateRatio mRatio;
    const uint32_t mFrameCount;
    int64_t mFraction;  // of an input frame, in 1 / mRatio.out: m * in / out less its floor
    int64_t mDebt;      // input frames borrowed from the reserve
    int64_t mHeldDebt;  // what one part of a pull owes at most, for its other parts' sake
    bool mRefilling;    // ran dry: pays all back before it goes on
};

}  // namespace android
