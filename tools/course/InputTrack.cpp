#include "tools/course/InputTrack.h"

#include <algorithm>

namespace android {

namespace {}  // namespace

void InputTrack::addDelay(double timeSec, int64_t waitNs) {
    mDelays.add(timeSec, static_cast<double>(waitNs) / 1e9);
}

void InputTrack::setPause(double timeSec) {
    mPauseSec = std::max(timeSec, 0.0);
    mFill.interrupt(mPauseSec);
}

void InputTrack::noteWrite(int64_t beginNs) {
    mWriteNs += nowNs() - beginNs;
}

}  // namespace android
