#include "tools/course/InputTrack.h"

#include <algorithm>

namespace android {

namespace {

constexpr size_t kMaxDelays = 300;

}  // namespace

void InputTrack::addDelay(double timeSec, int64_t waitNs) {
    if (mDelays.size() < kMaxDelays) {
        mDelays.push_back({.timeSec = timeSec, .waitSec = static_cast<double>(waitNs) / 1e9});
    }
}

void InputTrack::setPause(double timeSec) {
    mPauseSec = std::max(timeSec, 0.0);
    mFill.interrupt(mPauseSec);
}

void InputTrack::noteWrite(int64_t beginNs) {
    mWriteNs += nowNs() - beginNs;
}

}  // namespace android
