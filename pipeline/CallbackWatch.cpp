#include "pipeline/CallbackWatch.h"

#include <unistd.h>

#include <algorithm>

namespace android {

// False: between two callbacks. The other fields may belong to a later callback than the number: a
// second look tells.
bool CallbackWatch::look(Visit& visit) const {
    visit.number = mNumber.load(std::memory_order_acquire);
    visit.output =
        mOutput.load(std::memory_order_acquire);  // before the second look, like the next
    visit.startNs = mStartNs.load(std::memory_order_acquire);
    return visit.number % 2 != 0;
}

bool CallbackWatch::outlasts(nsecs_t patienceNs, Visit& visit) const {
    constexpr nsecs_t kLookNs = 1'000'000;
    if (!look(visit)) {
        return false;
    }
    Visit later = visit;
    while (look(later) && later.number == visit.number) {
        const nsecs_t leftNs = visit.startNs + patienceNs - systemTime(SYSTEM_TIME_MONOTONIC);
        if (leftNs <= 0) {
            return true;
        }
        usleep(static_cast<useconds_t>(std::min(leftNs, kLookNs) / 1000 + 1));
    }
    return false;
}

}  // namespace android
