#include "tools/mix/MixRecorder.h"

#include <algorithm>

namespace android {

MixRecorder::MixRecorder(const std::vector<MixInput*>& inputs, const Config& config)
    : mConfig(config),
      mMix({.rateHz = config.rateHz, .channelCount = 2, .bits = config.bits}),
      mBlocks(blockFrames(config.rateHz)) {
    for (const MixInput* input : inputs) {
        const Handover& handover = input->handover;
        mInputs.push_back(
            std::make_unique<InputTrack>(Envelope::Format{.rateHz = handover.config.sample_rate,
                                                          .channelCount = handover.channelCount,
                                                          .bits = handover.sampleBytes() * 8}));
        mInputs.back()->audio().seek(
            handover.delayFrames -
            framesAtRate(config.preRollFrames, config.rateHz, handover.config.sample_rate));
    }
}

void MixRecorder::beginBlock(int64_t blockStart, int64_t frameCount) {
    mIsInBlock = blockStart + frameCount > mConfig.preRollFrames;
    if (mIsInBlock) {
        mBlocks.begin(std::max(secondsOf(blockStart), 0.0), frameCount);
    }
}

void MixRecorder::endBlock() {
    if (mIsInBlock) {
        mBlocks.end();
        mIsInBlock = false;
    }
}

}  // namespace android
