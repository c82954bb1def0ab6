#pragma once

#include <cstdint>

#include "utils/Timers.h"

namespace android {

enum class AVSyncCall {
    kCreate,
    kSetLatency,
    kStart,
    kPause,
    kResume,
    kStop,
    kUpdateAudioPts,
    kGetSyncPts,
};

/** One call of a bridge. */
struct AVSyncRecord {
    nsecs_t timeNs;  // of the clock's time source, the monotonic clock on its own
    AVSyncCall call;
    uint64_t valueNs;  // the latency or timestamp given, the position answered, otherwise 0
};

}  // namespace android
