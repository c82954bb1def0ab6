#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/audio/Overload.h"
#include "tools/mix/MixInput.h"
#include "tools/mix/MixTarget.h"
#include "tools/mix/SumCheck.h"

namespace android {

/** Where the levels of a mix went beyond full scale, whatever it is mixed in. */
class MixLevels {
public:
    MixLevels(const std::vector<MixInput*>& inputs, const MixTarget& target)
        : mTarget(target), mWideOverload(target.rateHz) {
        // A single input has no sums, and its samples are held where it is narrowed: here, or by the
        // library if it gets them wide.
        if (target.mixBits() == 16 &&
            (inputs.size() > 1 || inputs.front()->handover.sampleBytes() == 4)) {
            mSums.emplace(inputs, target.rateHz);
        }
    }

    /** For the mix to fill: one or the other, or none where the peak is brought down afterwards. */
    SumCheck* sums() { return mSums ? &*mSums : nullptr; }
    Overload* wideOverload() {
        return mTarget.mixBits() == 16 || mTarget.isNormalized ? nullptr : &mWideOverload;
    }

    const Overload& overload() const { return mSums ? mSums->overload() : mWideOverload; }
    /** Samples beyond full scale that came out wrong: wrapped around, or held to full scale. */
    int64_t wrappedCount() const { return mSums ? mSums->overload().sampleCount() : 0; }
    int64_t clippedCount() const { return mTarget.isFloat ? 0 : mWideOverload.sampleCount(); }
    int64_t uncheckedCount() const { return mSums ? mSums->uncheckedCount() : 0; }
    /** Samples of an input that were held to full scale before they were mixed. */
    int64_t heldCount(const MixInput& input, size_t index) const {
        return input.source.clippedCount() + (mSums ? mSums->voice(index).heldCount() : 0);
    }
    /** What comes out at most, 1.0 is full scale; `metered` is the level held to it. */
    double peak(double metered) const {
        return mTarget.isFloat && !mTarget.isNormalized ? std::max(metered, mWideOverload.peak())
                                                        : metered;
    }

private:
    const MixTarget mTarget;
    std::optional<SumCheck> mSums;  // of a 16-bit mix
    Overload mWideOverload;
};

}  // namespace android
