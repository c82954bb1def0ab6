#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/course/SyncTrack.h"
#include "tools/replay/ClockEvent.h"

namespace android {

/** Makes the events happen to the clock when they are due, on a thread of its own. */
class ClockDriver {
public:
    ClockDriver(const sp<AVSyncClock>& clock, std::vector<ClockEvent> events, SyncTrack& track);
    ~ClockDriver();  // stops
    ClockDriver(const ClockDriver&) = delete;
    ClockDriver& operator=(const ClockDriver&) = delete;

    /** `startNs`: what event times count from, on the monotonic clock. */
    void start(nsecs_t startNs);
    /** Events that are not due yet will not happen. */
    void stop();

private:
    void run(nsecs_t startNs);

    const sp<AVSyncClock> mClock;
    std::vector<ClockEvent> mEvents;  // by time
    SyncTrack& mTrack;
    std::mutex mLock;
    std::condition_variable mStop;
    bool mIsStopped = false;  // under mLock
    std::thread mThread;
};

}  // namespace android
