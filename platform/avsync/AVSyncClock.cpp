#include "avsync/AVSyncClock.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <new>

#include "../utils/UntilUnload.h"

namespace android {

namespace {

constexpr size_t kMaxRecords = 65536;
constexpr double kMaxDriftPpm = 1e6;  // standing still, or twice as fast

nsecs_t monotonicNow() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

/** Clocks by id. One that nobody else holds is swept by the next forId(). */
struct ClockRegistry {
    std::mutex lock;
    std::map<uint32_t, sp<AVSyncClock>> clocks;
};

std::atomic<int> gRefusal{0};
std::atomic<AVSyncClock::TimeSource> gTimeSource{&monotonicNow};

}  // namespace

AVSyncClock::AVSyncClock(uint32_t hwSyncId, TimeSource now) : mId(hwSyncId), mNow(now) {
    // A mixer's worker may make the call that is recorded, and it allocates nothing. Pages that are
    // never written cost nothing.
    mRecords.reserve(kMaxRecords);
}

AVSyncClock::~AVSyncClock() = default;

sp<AVSyncClock> AVSyncClock::forId(uint32_t hwSyncId) {
    ClockRegistry& all = untilUnload<ClockRegistry>();
    const std::lock_guard<std::mutex> lock(all.lock);
    // Clocks that only the registry holds are nobody's any more. A null one got no memory.
    std::erase_if(all.clocks, [hwSyncId](const auto& entry) {
        return entry.first != hwSyncId &&
               (entry.second == nullptr || entry.second->getStrongCount() == 1);
    });
    sp<AVSyncClock>& clock = all.clocks[hwSyncId];
    if (clock == nullptr || clock->getStrongCount() == 1) {
        clock = new AVSyncClock(hwSyncId, gTimeSource.load());
    }
    return clock;
}

void AVSyncClock::refuseBridges(int status) {
    gRefusal.store(status);
}

int AVSyncClock::refusal() {
    return gRefusal.load();
}

void AVSyncClock::setTimeSource(TimeSource source) {
    gTimeSource.store(source != nullptr ? source : &monotonicNow);
}

uint64_t AVSyncClock::positionNs_l() const {
    if (!mAnchored || mPaused) {
        return mAnchorNs;
    }
    const auto elapsedNs = static_cast<double>(std::max<nsecs_t>(mNow() - mAnchorTimeNs, 0));
    // A double holds the elapsed ns of three months exactly.
    return mAnchorNs + static_cast<uint64_t>(elapsedNs + elapsedNs * mDriftPpm / 1e6);
}

void AVSyncClock::anchor_l(uint64_t positionNs) {
    mAnchorNs = positionNs;
    mAnchorTimeNs = mNow();
    mAnchored = true;
}

uint64_t AVSyncClock::positionNs() {
    const Mutex::Autolock lock(mLock);
    return positionNs_l();
}

void AVSyncClock::setPositionNs(uint64_t positionNs) {
    const Mutex::Autolock lock(mLock);
    anchor_l(positionNs);
}

void AVSyncClock::jumpNs(int64_t deltaNs) {
    const Mutex::Autolock lock(mLock);
    if (!mAnchored) {
        return;
    }
    const uint64_t positionNs = positionNs_l();
    const uint64_t backNs = deltaNs < 0 ? uint64_t{0} - static_cast<uint64_t>(deltaNs) : 0;
    anchor_l(deltaNs >= 0 ? positionNs + static_cast<uint64_t>(deltaNs)
                          : positionNs - (backNs < positionNs ? backNs : positionNs));
}

void AVSyncClock::setDriftPpm(double ppm) {
    const Mutex::Autolock lock(mLock);
    if (mAnchored) {
        anchor_l(positionNs_l());
    }
    mDriftPpm = std::isfinite(ppm) ? std::clamp(ppm, -kMaxDriftPpm, kMaxDriftPpm) : 0;
}

void AVSyncClock::pause_l() {
    mAnchorNs = positionNs_l();
    mPaused = true;
}

void AVSyncClock::pause() {
    const Mutex::Autolock lock(mLock);
    pause_l();
}

void AVSyncClock::resume_l() {
    if (mPaused) {
        mPaused = false;
        mAnchorTimeNs = mNow();
    }
}

void AVSyncClock::resume() {
    const Mutex::Autolock lock(mLock);
    resume_l();
}

void AVSyncClock::clear_l() {
    mAnchored = false;
    mPaused = false;
    mAnchorNs = 0;
}

void AVSyncClock::clear() {
    const Mutex::Autolock lock(mLock);
    clear_l();
}

bool AVSyncClock::isRunning() {
    const Mutex::Autolock lock(mLock);
    return mAnchored && !mPaused;
}

void AVSyncClock::setLatencyNs(uint64_t latencyNs) {
    const Mutex::Autolock lock(mLock);
    mLatencyNs = latencyNs;
}

uint64_t AVSyncClock::latencyNs() {
    const Mutex::Autolock lock(mLock);
    return mLatencyNs;
}

uint64_t AVSyncClock::bridgeCall(AVSyncCall call, uint64_t valueNs) {
    const Mutex::Autolock lock(mLock);
    switch (call) {
        case AVSyncCall::kCreate:
            break;
        case AVSyncCall::kSetLatency:
            mLatencyNs = valueNs;
            break;
        case AVSyncCall::kStart:
        case AVSyncCall::kResume:
            resume_l();
            break;
        case AVSyncCall::kPause:
            pause_l();
            break;
        case AVSyncCall::kStop:
            clear_l();
            break;
        case AVSyncCall::kUpdateAudioPts:
            anchor_l(valueNs);
            break;
        case AVSyncCall::kGetSyncPts:
            valueNs = positionNs_l();
            break;
    }
    record_l(call, valueNs);
    return valueNs;
}

void AVSyncClock::record_l(AVSyncCall call, uint64_t valueNs) {
    const AVSyncRecord entry = {.timeNs = mNow(), .call = call, .valueNs = valueNs};
    if (mRecords.size() == kMaxRecords) {
        mRecords[mOldest] = entry;
        mOldest = (mOldest + 1) % kMaxRecords;
        return;
    }
    try {
        mRecords.push_back(entry);
    } catch (const std::bad_alloc&) {
        // The call has had its effect; whoever reads the record misses it.
    }
}

std::vector<AVSyncRecord> AVSyncClock::takeRecords() {
    const Mutex::Autolock lock(mLock);
    std::vector<AVSyncRecord> records(mRecords.begin() + static_cast<ptrdiff_t>(mOldest),
                                      mRecords.end());
    records.insert(records.end(), mRecords.begin(),
                   mRecords.begin() + static_cast<ptrdiff_t>(mOldest));
    mRecords.clear();
    mOldest = 0;
    return records;
}

}  // namespace android
