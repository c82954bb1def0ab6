#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/audio/Overload.h"
#include "tools/mix/MixInput.h"
#include "tools/mix/SumVoice.h"

namespace android {

/**
 * Finds the samples of a 16-bit mix that wrapped around. The mix holds the low 16 bits of each sum;
 * the inputs give the sum once more, and so its upper bits.
 * Threads: as SumVoice; check() on the mixer's; read it when no more is mixed.
 */
class SumCheck {
public:
    SumCheck(const std::vector<MixInput*>& inputs, uint32_t mixRateHz);

    SumVoice& voice(size_t index) { return *mVoices[index]; }
    const SumVoice& voice(size_t index) const { return *mVoices[index]; }

    struct Block {
        const int16_t* samples;  // stereo
        int64_t frameCount;
        int64_t heardBegin;  // the frames of it that are written
        int64_t heardEnd;
        int64_t heardFrame;  // of the output, where they begin
    };
    /** The sum of those inputs that are open. */
    void check(const Block& block, const std::vector<bool>& isOpen);

    const Overload& overload() const { return mOverload; }
    /** Samples that are not the sum of what the inputs gave: frames were lost in a short block. */
    int64_t uncheckedCount() const { return mUncheckedCount; }

private:
    bool isSumOf(const int16_t* samples, int64_t frameCount) const;
    void find(const Block& block);

    Overload mOverload;
    std::vector<std::unique_ptr<SumVoice>> mVoices;
    int64_t mUncheckedCount = 0;
    std::vector<int32_t> mSums;
};

}  // namespace android
