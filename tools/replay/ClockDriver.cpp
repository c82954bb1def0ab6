#include "tools/replay/ClockDriver.h"

#include <algorithm>
#include <chrono>

namespace android {

ClockDriver::ClockDriver(const sp<AVSyncClock>& clock, std::vector<ClockEvent> events,
                         SyncTrack& track)
    : mClock(clock), mEvents(std::move(events)), mTrack(track) {
    std::stable_sort(mEvents.begin(), mEvents.end(),
                     [](const auto& a, const auto& b) { return a.timeNs < b.timeNs; });
}

ClockDriver::~ClockDriver() {
    stop();
}

void ClockDriver::start(nsecs_t startNs) {
    mThread = std::thread([this, startNs] { run(startNs); });
}

void ClockDriver::stop() {
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mIsStopped = true;
    }
    mStop.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
}

void ClockDriver::run(nsecs_t startNs) {
    for (const ClockEvent& event : mEvents) {
        const std::chrono::steady_clock::time_point due{
            std::chrono::nanoseconds(startNs + event.timeNs)};
        {
            std::unique_lock<std::mutex> lock(mLock);
            if (mStop.wait_until(lock, due, [this] { return mIsStopped; })) {
                return;
            }
        }
        // The time before: a decision that the event leads to must not come ahead of it.
        const nsecs_t timeNs = systemTime(SYSTEM_TIME_MONOTONIC) - startNs;
        mTrack.addEvent({.timeNs = timeNs, .text = event.applyTo(*mClock)});
    }
}

}  // namespace android
