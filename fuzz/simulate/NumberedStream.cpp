#include "fuzz/simulate/NumberedStream.h"

#include <algorithm>
#include <cinttypes>

#include "fuzz/simulate/Run.h"

NumberedStream::Call NumberedStream::beginWrite(uint64_t frameCount) {
    mOffered = mAccepted + frameCount;
    mIsWriting = true;
    mWriteIdleNs = run::idleNs();
    return beginOpen();
}

void NumberedStream::endWrite(const Call& call, uint64_t takenCount, uint64_t cycle) {
    mAccepted += takenCount;
    mOffered = mAccepted;
    mIsWriting = false;
    endOpen(call, takenCount > 0, cycle);
}

NumberedStream::Call NumberedStream::beginOpen() {
    ++mOpensBegun;
    ++mOpensUnderWay;
    mPausedFrom = kNever;
    return {mPausesBegun, mOpensBegun, mPausesUnderWay == 0};
}

void NumberedStream::endOpen(const Call& call, bool isOpen, uint64_t cycle) {
    --mOpensUnderWay;
    if (isOpen && call.isAlone && mPausesBegun == call.pausesBegun) {
        mOpenFrom = std::min(mOpenFrom, cycle);
    }
}

NumberedStream::Call NumberedStream::beginPause() {
    ++mPausesBegun;
    ++mPausesUnderWay;
    mOpenFrom = kNever;
    // A write that has slept knows that it began before.
    const bool isWriteOlder = mIsWriting && run::idleNs() > mWriteIdleNs;
    return {mPausesBegun, mOpensBegun, mOpensUnderWay == (isWriteOlder ? 1U : 0U)};
}

void NumberedStream::endPause(const Call& call, uint64_t cycle) {
    --mPausesUnderWay;
    if (call.isAlone && mOpensBegun == call.opensBegun) {
        mPausedFrom = std::min(mPausedFrom, cycle);
    }
}

void NumberedStream::beginDiscard() {
    mMayJump = true;
    mHasDiscarded = true;
    if (mDiscardsUnderWay++ == 0) {
        mAcceptedAtDiscard = mAccepted;
    }
}

void NumberedStream::endDiscard(uint64_t cycle) {
    mMayJump = true;
    mLastDiscard = cycle;
    if (--mDiscardsUnderWay == 0 && mAcceptedAtDiscard > mFloor) {
        mFloor = mAcceptedAtDiscard;
        mFloorCycle = cycle;
    }
}

NumberedStream::Call NumberedStream::beginClose() {
    beginDiscard();
    Call call = beginPause();
    // A tunnel stream's write may wait for the close, and open the stream again.
    call.isAlone = call.isAlone && !(mIsTunnel && mIsWriting);
    return call;
}

void NumberedStream::endClose(const Call& call, uint64_t cycle) {
    endDiscard(cycle);
    endPause(call, cycle);
}

void NumberedStream::hear(const int32_t* samples, size_t frameCount, uint64_t cycle,
                          bool hasNewer) {
    const auto silentCount = static_cast<size_t>(std::count(samples, samples + frameCount, 0));
    if (!mIsTunnel && silentCount != 0 && silentCount != frameCount) {
        run::fault("stream %zu: a block is torn: %zu of its %zu frames are silent", mSlot,
                   silentCount, frameCount);
    }
    if (silentCount == frameCount && !mIsTunnel) {
        if (mOpenFrom != kNever && cycle >= mOpenFrom + 2) {
            run::fault("stream %zu: open since cycle %" PRIu64 ", but not in cycle %" PRIu64
                       ": an open takes effect with the next cycle",
                       mSlot, mOpenFrom, cycle);
        }
        return;
    }
    if (silentCount != frameCount && mPausedFrom != kNever && cycle > mPausedFrom + 1) {
        run::fault("stream %zu: paused or closed since cycle %" PRIu64
                   ", but heard in cycle %" PRIu64 ": a pause takes effect with the next cycle",
                   mSlot, mPausedFrom, cycle);
    }
    mHadNewer |= hasNewer;
    for (size_t i = 0; i < frameCount; ++i) {
        if (samples[i] != 0) {
            advance(samples[i], cycle);
        }
    }
    if (silentCount != frameCount) {
        // A block that was pulled before the discard does not show its gap.
        mMayJump = mDiscardsUnderWay > 0 || cycle <= mLastDiscard + 1;
        if (!mIsTunnel) {
            mFormerLosable = mLosable;
            mLosable = 0;
        }
        mFormerlyHadNewer = mHadNewer || hasNewer;
        mHadNewer = hasNewer;
    }
}

void NumberedStream::advance(int32_t sample, uint64_t cycle) {
    if (sample < 1 || static_cast<uint64_t>(sample) > kPeriod) {
        run::fault("stream %zu: a frame that nobody wrote, %d, after frame %" PRIu64, mSlot, sample,
                   mNext);
    }
    // Discarded frames may be more than a period.
    const uint64_t least = cycle > mFloorCycle + 1 ? std::max(mNext, mFloor) : mNext;
    const uint64_t number =
        least + (static_cast<uint64_t>(sample - 1) + kPeriod - least % kPeriod) % kPeriod;
    if (number >= mOffered) {
        run::fault("stream %zu: frame %" PRIu64 " of a period is heard after frame %" PRIu64
                   ": it came again, or late after a discard by cycle %" PRIu64 ", for %" PRIu64
                   " frames were written",
                   mSlot, number % kPeriod, mNext, mFloorCycle, mOffered);
    }
    if (number > mNext) {
        gap(number - mNext);
    }
    ++mNext;
}

void NumberedStream::gap(uint64_t frameCount) {
    mNext += frameCount;
    if (mMayJump) {
        return;
    }
    uint64_t left = frameCount;
    if (mIsTunnel) {
        // What is dropped is heard as a gap much later, and so is what a silence lost.
        const uint64_t lost = std::min(frameCount, mDropped + mLosable);
        left -= lost;
        mDropped -= std::min(lost, mDropped);
    }
    const uint64_t losable = mFormerlyHadNewer || mHadNewer ? mFormerLosable + mLosable : 0;
    if (left > losable) {
        run::fault("stream %zu: %" PRIu64 " frames are missing before frame %" PRIu64
                   ", but short cycles of streams mixed after it took %" PRIu64 " at most",
                   mSlot, left, mNext, losable);
    }
}

void NumberedStream::expectAllHeard() {
    if (mAccepted > mNext) {
        // Nobody can tell how many periods a discard took.
        const uint64_t missing = mAccepted - mNext;
        gap(mHasDiscarded ? missing % kPeriod : missing);
    } else if (mAccepted < mNext) {
        run::fault("stream %zu: %" PRIu64 " frames are heard, but %" PRIu64 " were written", mSlot,
                   mNext, mAccepted);
    }
}
