#include "LookAhead.h"

#include <algorithm>

namespace android {

namespace {

// A region cut short costs at most one input frame less than an output frame takes, and only where
// it has to fill its room alone. The reserve bears four of these; pairs with an uneven ratio win
// them back from the rounded-up input of later pulls, the others when the stream next runs dry.
constexpr uint32_t kReservedCuts = 4;

// Where the rate is raised any frame yields output and nothing is borrowed; one frame of reserve
// covers the input that the last output frame needs beyond its floor.
constexpr uint32_t kLeastFrames = 1;

}  // namespace

LookAhead::LookAhead(const RateRatio& ratio)
    : mRatio(ratio),
      mFrameCount(std::max(kLeastFrames, kReservedCuts * (ratio.inFramesRoundedUp() - 1))) {
    reset();
}

void LookAhead::reset() {
    mFraction = 0;
    mDebt = 0;
    mHeldDebt = 0;
    mRefilling = false;
}

/** The output frames that all input, the reserve included, suffices for. */
int64_t LookAhead::outputsPossible(int64_t offered) const {
    const int64_t spare = (offered + mFrameCount - mDebt) * mRatio.out - mFraction;
    return spare < 0 ? 0 : spare / mRatio.in + 1;
}

/** The most output frames after which no more than `debt` is owed. */
int64_t LookAhead::outputsOwing(int64_t debt, int64_t offered) const {
    const int64_t spare = offered + debt - mDebt;
    return spare < 0 ? 0 : ((spare + 1) * mRatio.out - mFraction - 1) / mRatio.in;
}

int64_t LookAhead::chooseOutputs(int64_t offered, int64_t room) {
    const int64_t possible = outputsPossible(offered);
    // A pull asks for the input of its room, rounded up. Less than that is a part of a pull, cut by
    // the end of a ring or by a ring that runs out.
    const bool isWholePull = offered * mRatio.out >= room * mRatio.in;

    if (offered > 0 && possible < (isWholePull ? room : std::min<int64_t>(room, 1))) {
        mRefilling = true;
    }
    if (mRefilling) {
        return std::min(room, outputsOwing(0, offered));
    }
    if (isWholePull) {
        return std::min(room, possible);
    }
    // A part borrows nothing, else a later part would lack input; but it yields one frame at least,
    // because nothing at all ends the pull.
    const int64_t atLeast = offered > 0 ? 1 : 0;
    return std::min({room, possible, std::max(atLeast, outputsOwing(mHeldDebt, offered))});
}

LookAhead::Plan LookAhead::plan(size_t offeredFrames, size_t roomFrames) {
    const auto offered = static_cast<int64_t>(offeredFrames);
    const auto room = static_cast<int64_t>(roomFrames);
    const int64_t produced = chooseOutputs(offered, room);

    const int64_t position = mFraction + produced * mRatio.in;
    mFraction = position % mRatio.out;
    mDebt += position / mRatio.out;

    const int64_t consumed = std::min(mDebt, offered);
    mDebt -= consumed;

    if (mRefilling && mDebt == 0) {
        mRefilling = false;
        mHeldDebt = 0;
    } else if (produced == room && room > 0) {
        mHeldDebt = mDebt;
    }
    return {static_cast<size_t>(consumed), static_cast<size_t>(produced)};
}

}  // namespace android
