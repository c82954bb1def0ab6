#include "tools/mix/BlockLoss.h"

#include <algorithm>

namespace android {

namespace {

constexpr int64_t kRoundingFrames = 2;  // of a converter, in one block

}  // namespace

BlockLoss::BlockLoss(std::vector<const Handover*> inputs, int64_t blockFrames)
    : mBlockFrames(blockFrames) {
    for (const Handover* handover : inputs) {
        mVoices.push_back({.handover = handover});
    }
}

/** What each gives if only falling rates shorten the block; the frames of the block then. */
int64_t BlockLoss::foretell(const std::vector<State>& states) {
    int64_t askedFrames = mBlockFrames;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        Voice& voice = mVoices[index];
        const Handover& handover = *voice.handover;
        voice.isShortening = states[index] != State::CLOSED && handover.deliversShort();
        if (voice.isShortening) {
            askedFrames = askedFrames * handover.mixRateHz / handover.config.sample_rate;
        }
        voice.givenFrames = states[index] == State::CLOSED ? 0 : askedFrames;
    }
    return askedFrames;
}

/**
 * Less came than that: a stage in front of a converter that raises the rate found no room. Without
 * one, those that shorten every block had less than they were asked for.
 */
void BlockLoss::blameStages(const std::vector<State>& states) {
    const auto isRising = [&](size_t index) {
        const Handover& handover = *mVoices[index].handover;
        return states[index] != State::CLOSED && handover.isStaged() && !handover.deliversShort();
    };
    bool isAnyRising = false;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        isAnyRising = isAnyRising || isRising(index);
    }
    for (size_t index = 0; isAnyRising && index < mVoices.size(); ++index) {
        mVoices[index].isShortening = isRising(index);
    }
}

void BlockLoss::add(const std::vector<State>& states, int64_t frameCount) {
    if (frameCount + kRoundingFrames < foretell(states)) {
        blameStages(states);
    }
    bool isBeforeShortening = false;
    for (size_t index = mVoices.size(); index-- > 0;) {
        Voice& voice = mVoices[index];
        voice.shortenedCount += voice.isShortening ? 1 : 0;
        if (isBeforeShortening && states[index] == State::PLAYING) {
            voice.lostFrames += std::max<int64_t>(voice.givenFrames - frameCount, 0);
        }
        isBeforeShortening = isBeforeShortening || voice.isShortening;
    }
}

int64_t BlockLoss::maxLostFrames(size_t index) const {
    const Handover& handover = *mVoices[index].handover;
    return framesAtRate(mVoices[index].lostFrames, handover.mixRateHz, handover.config.sample_rate);
}

}  // namespace android
