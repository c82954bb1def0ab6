#include "tools/course/BlockTrack.h"

namespace android {

namespace {

double msBetween(std::chrono::steady_clock::time_point from,
                 std::chrono::steady_clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

}  // namespace

void BlockTrack::begin(double timeSec, int64_t frameCount) {
    const Clock::time_point now = Clock::now();
    mFrames.add(timeSec, static_cast<double>(frameCount));
    if (mHasFormer) {
        mCycles.add(timeSec, msBetween(mBegin, now));
        mMixing.add(timeSec, msBetween(mEnd, now));
    }
    if (frameCount < mWholeFrames) {
        mShortBlocks.add(timeSec, static_cast<double>(frameCount));
    }
    mTimeSec = timeSec;
    mBegin = now;
}

void BlockTrack::end() {
    mEnd = Clock::now();
    mCallbacks.add(mTimeSec, msBetween(mBegin, mEnd));
    mHasFormer = true;
}

}  // namespace android
