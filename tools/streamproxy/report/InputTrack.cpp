#include "tools/streamproxy/report/InputTrack.h"

#include <algorithm>

namespace android {

namespace {

constexpr size_t kMaxDelays = 300;

}  // namespace

void InputTrack::addDelay(const Delay& delay) {
    ++mDelayCount;
    if (mDelays.size() < kMaxDelays) {
        mDelays.push_back(delay);
    }
}

void InputTrack::setPause(double timeSec) {
    mPauseSec = std::max(timeSec, 0.0);
    mFill.interrupt(mPauseSec);
}

void InputTrack::noteWrite(int64_t beginNs) {
    const int64_t endNs = nowNs();
    mWriteNs += endNs - beginNs;
    mLastWriteNs.store(endNs, std::memory_order_relaxed);
}

}  // namespace android
