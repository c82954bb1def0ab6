/**
 * The software AV-sync clocks behind the bridges of this process, as a renderer, a test or a tool
 * sees and sets them.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "avsync/AVSyncRecord.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/Timers.h"

namespace android {

/**
 * One clock per hw-sync id, shared by every bridge of that id and by whoever asks for it. It has no
 * position until it is anchored, then runs on the monotonic clock, at its own rate.
 * Threads: any.
 */
class AVSyncClock : public RefBase {
public:
    /** The clock of an id; it lives while a bridge or a caller holds it. */
    static sp<AVSyncClock> forId(uint32_t hwSyncId);
    /** The next bridges are refused with `status` (negative errno value); 0 makes them again. */
    static void refuseBridges(int status);
    /** What createHwSyncBridge() answers while refused, otherwise 0. */
    static int refusal();

    uint32_t id() const { return mId; }

    /** 0 before the first anchor and after clear(). */
    uint64_t positionNs() EXCLUDES(mLock);
    /** Anchors: the position is this now and runs on, unless the clock is paused. */
    void setPositionNs(uint64_t positionNs) EXCLUDES(mLock);
    /** Moves an anchored clock; not below 0. */
    void jumpNs(int64_t deltaNs) EXCLUDES(mLock);
    /** How much faster than the monotonic clock it runs from here on, in parts per million: from
     *  -1e6 (standing still) to 1e6, held to that. */
    void setDriftPpm(double ppm) EXCLUDES(mLock);

    void pause() EXCLUDES(mLock);
    void resume() EXCLUDES(mLock);
    /** Forgets the position; a pause ends. */
    void clear() EXCLUDES(mLock);
    bool isRunning() EXCLUDES(mLock);

    void setLatencyNs(uint64_t latencyNs) EXCLUDES(mLock);
    uint64_t latencyNs() EXCLUDES(mLock);

    /** What a bridge of this clock was called to do: the effect and its place in the record are one
     *  step. Returns the value recorded: `valueNs`, or the position for kGetSyncPts. The newest
     *  65536 calls are kept, fewer where memory is out. */
    uint64_t bridgeCall(AVSyncCall call, uint64_t valueNs = 0) EXCLUDES(mLock);
    /** The calls noted since the last take, oldest first. */
    std::vector<AVSyncRecord> takeRecords() EXCLUDES(mLock);

    /** The time that clocks made from here on run on; null restores the monotonic clock. For tests
     *  that must not wait. */
    using TimeSource = nsecs_t (*)();
    static void setTimeSource(TimeSource source);

private:
    explicit AVSyncClock(uint32_t hwSyncId, TimeSource now);
    ~AVSyncClock() override;

    uint64_t positionNs_l() const REQUIRES(mLock);
    /** Goes on from `positionNs` now. */
    void anchor_l(uint64_t positionNs) REQUIRES(mLock);
    void pause_l() REQUIRES(mLock);
    void resume_l() REQUIRES(mLock);
    void clear_l() REQUIRES(mLock);
    void record_l(AVSyncCall call, uint64_t valueNs) REQUIRES(mLock);

    const uint32_t mId;
    const TimeSource mNow;
    Mutex mLock;
    bool mAnchored GUARDED_BY(mLock) = false;
    bool mPaused GUARDED_BY(mLock) = false;
    uint64_t mAnchorNs GUARDED_BY(mLock) = 0;     // the position at mAnchorTimeNs
    nsecs_t mAnchorTimeNs GUARDED_BY(mLock) = 0;  // monotonic
    double mDriftPpm GUARDED_BY(mLock) = 0;
    uint64_t mLatencyNs GUARDED_BY(mLock) = 0;
    std::vector<AVSyncRecord> mRecords GUARDED_BY(mLock);  // a ring once full
    size_t mOldest GUARDED_BY(mLock) = 0;
};

}  // namespace android
