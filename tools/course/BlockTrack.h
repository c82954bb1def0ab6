#pragma once

#include <chrono>
#include <cstdint>

#include "tools/course/Course.h"
#include "tools/course/Moments.h"

namespace android {

/**
 * The blocks that the library delivered: how long they are and how long they took.
 * Threads: begin() and end() on the mixer's; read it when no more is mixed.
 */
class BlockTrack {
public:
    explicit BlockTrack(int64_t wholeFrames) : mWholeFrames(wholeFrames) {}

    /** The callback begins, with a block that stands at `timeSec` on the page. */
    void begin(double timeSec, int64_t frameCount);
    /** The callback returns. */
    void end();

    int64_t wholeFrames() const { return mWholeFrames; }
    const Course& frames() const { return mFrames; }
    /** From one callback's begin to the next one's, in ms. */
    const Course& cycles() const { return mCycles; }
    /** Inside the callback, in ms: what the host does with a block, and how long it waits. */
    const Course& callbacks() const { return mCallbacks; }
    /** From a callback's return to the next one's begin, in ms: what mixing a block takes. */
    const Course& mixing() const { return mMixing; }
    /** In frames. */
    const Moments& shortBlocks() const { return mShortBlocks; }
    int64_t shortBlockCount() const { return mShortBlocks.count(); }

private:
    using Clock = std::chrono::steady_clock;

    const int64_t mWholeFrames;
    Course mFrames;
    Course mCycles;
    Course mCallbacks;
    Course mMixing;
    Moments mShortBlocks;
    double mTimeSec = 0.0;
    bool mHasFormer = false;
    Clock::time_point mBegin{};
    Clock::time_point mEnd{};
};

}  // namespace android
