#include "tools/mix/SumCheck.h"

#include <cmath>
#include <cstdlib>

namespace android {

namespace {

// A gain on its walk may be a step off where a block is mixed in two parts.
constexpr int32_t kTolerance = 64;

}  // namespace

SumCheck::SumCheck(const std::vector<MixInput*>& inputs, uint32_t mixRateHz)
    : mOverload(mixRateHz) {
    for (const MixInput* input : inputs) {
        mVoices.push_back(std::make_unique<SumVoice>(input->handover));
    }
}

/** Nothing wrapped, to the bit: by far the most blocks. */
bool SumCheck::isSumOf(const int16_t* samples, int64_t frameCount) const {
    int32_t difference = 0;
    for (int64_t i = 0; i < frameCount * 2; ++i) {
        difference |= mSums[static_cast<size_t>(i)] - samples[i];
    }
    return difference == 0;
}

void SumCheck::find(const Block& block) {
    for (int64_t i = block.heardBegin * 2; i < block.heardEnd * 2; ++i) {
        const int32_t sum = mSums[static_cast<size_t>(i)];
        const auto error = static_cast<int16_t>(sum - block.samples[i]);
        if (std::abs(int32_t{error}) > kTolerance) {
            mUncheckedCount += 1;
        } else if (sum - error != block.samples[i]) {
            mOverload.add(block.heardFrame + i / 2 - block.heardBegin,
                          std::abs(sum - error) / 32768.0);
        }
    }
}

void SumCheck::check(const Block& block, const std::vector<bool>& isOpen) {
    mSums.assign(static_cast<size_t>(block.frameCount) * 2, 0);
    for (size_t index = 0; index < mVoices.size(); ++index) {
        if (isOpen[index]) {
            mVoices[index]->addTo(mSums.data(), block.frameCount);
        }
    }
    if (!isSumOf(block.samples, block.frameCount)) {
        find(block);
    }
}

}  // namespace android
