/**
 * The low-pass filter between two rates, laid out by phase: a sinc under Kaiser's window, 64 taps
 * long in the slower rate's time.
 *
 * An output frame stands phase / ratio.out before the input frame that its window is centred on
 * (0 <= phase < ratio.out). Where a table of all these phases is small, each has its own row. The
 * other pairs share a table so fine that the output interpolated between two of its rows errs by
 * less than 16 bits can show (-110 dB).
 *
 * Threads: any, it never changes after construction, which throws std::bad_alloc.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RateRatio.h"

namespace android {

class PolyphaseFilter {
public:
    explicit PolyphaseFilter(const RateRatio& ratio);

    /** Input frames under one window; a multiple of kLanes. The centre is at half of it. */
    size_t tapCount() const { return mTapCount; }

    /** One output sample from the tapCount() samples of one channel at `window`. */
    float apply(const float* window, uint32_t phase) const;

private:
    static constexpr size_t kLanes = 8;

    void design(const RateRatio& ratio);
    float sumOfProducts(const float* window, const float* row) const;

    size_t mTapCount;
    bool mIsExact;
    uint32_t mPhaseCount;       // rows of one input frame; not exact: one more row follows
    uint32_t mRatioOut;         // phases in an input frame
    std::vector<float> mTable;  // row after row, mTapCount coefficients each
};

}  // namespace android
