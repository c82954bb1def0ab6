#pragma once

#include <cstddef>
#include <cstdint>

/**
 * What a host knows of one stream, and what its frames in the mix tell. Every frame that a numbered
 * stream writes carries its number, modulo kPeriod, in one channel of the mix, which the stream has
 * to itself; other streams write silence.
 *
 * Called between two steps of a run only, so nothing is guarded. Cycles are counted by the first
 * output's callbacks: the cycle in progress is the next one, or the last one while its callback runs.
 */
class NumberedStream {
public:
    static constexpr uint64_t kPeriod = 30'000;
    static constexpr int kWideShift = 12;  // of a 16-bit sample in Q4.27

    /** The sample of a frame; never 0, which is silence. */
    static int32_t encode(uint64_t number) { return static_cast<int32_t>(number % kPeriod) + 1; }

    /** `time`: a count of begun and ended creations, for streams are mixed in the order created. */
    NumberedStream(size_t slot, bool isTunnel, uint64_t time)
        : mSlot(slot), mIsTunnel(isTunnel), mCreationBegan(time) {}

    void endCreation(uint64_t time) { mCreationEnded = time; }
    uint64_t creationBegan() const { return mCreationBegan; }
    /** Whether it may be mixed before the other. */
    bool mayPrecede(const NumberedStream& other) const {
        return mCreationBegan < other.mCreationEnded;
    }
    uint64_t accepted() const { return mAccepted; }
    uint64_t heard() const { return mNext; }

    /** What was known when a call began. */
    struct Call {
        uint32_t pausesBegun;
        uint32_t opensBegun;
        bool isAlone;  // no call of the other kind was under way
    };
    /** Around a write of frames from accepted() on, of which `takenCount` were taken. */
    Call beginWrite(uint64_t frameCount);
    void endWrite(const Call& call, uint64_t takenCount, uint64_t cycle);
    /** Around an open; also around a resume, which may open a tunnel stream. */
    Call beginOpen();
    void endOpen(const Call& call, bool isOpen, uint64_t cycle);
    Call beginPause();
    void endPause(const Call& call, uint64_t cycle);
    /** Around a flush. */
    void beginDiscard();
    void endDiscard(uint64_t cycle);
    /** Around a close, or a destruction. */
    Call beginClose();
    void endClose(const Call& call, uint64_t cycle);

    /** A stream that is mixed later is being created. */
    void noteNewer() { mHadNewer = true; }
    /** A cycle came short: whoever is mixed before the short stream loses up to a block. */
    void noteShort(uint64_t blockFrameCount) { mLosable += blockFrameCount; }
    /** AV sync or a full ring took frames, as the log says. */
    void noteDropped(uint64_t frameCount) { mDropped += frameCount; }

    /** The stream's channel of a block. `hasNewer`: a stream that is mixed later exists. */
    void hear(const int32_t* samples, size_t frameCount, uint64_t cycle, bool hasNewer);
    /** All that it took must have been heard by now, but for what was lost. */
    void expectAllHeard();

private:
    static constexpr uint64_t kNever = UINT64_MAX / 2;

    void advance(int32_t sample, uint64_t cycle);
    void gap(uint64_t frameCount);

    const size_t mSlot;
    const bool mIsTunnel;
    const uint64_t mCreationBegan;
    uint64_t mCreationEnded = UINT64_MAX;
    uint64_t mAccepted = 0;
    uint64_t mOffered = 0;  // with the write in progress
    uint64_t mNext = 0;     // the number that is heard next

    uint32_t mOpensBegun = 0;
    uint32_t mOpensUnderWay = 0;
    uint32_t mPausesBegun = 0;
    uint32_t mPausesUnderWay = 0;
    bool mIsWriting = false;
    int64_t mWriteIdleNs = 0;       // run::idleNs() when it began
    uint64_t mOpenFrom = kNever;    // the cycle since which nothing has closed it
    uint64_t mPausedFrom = kNever;  // ... and since which nothing has opened it

    bool mHasDiscarded = false;
    uint32_t mDiscardsUnderWay = 0;
    bool mMayJump = false;      // a discard has begun since the last frame
    uint64_t mLastDiscard = 0;  // the cycle in which it ended
    uint64_t mFloor = 0;        // frames below it were discarded, ...
    uint64_t mFloorCycle = 0;   // ... in this cycle
    uint64_t mAcceptedAtDiscard = 0;

    // What short cycles may have taken: before the last block that was heard, and since.
    uint64_t mFormerLosable = 0;
    uint64_t mLosable = 0;
    bool mFormerlyHadNewer = false;
    bool mHadNewer = false;
    uint64_t mDropped = 0;
};
