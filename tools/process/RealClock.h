#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace android {

/**
 * The system's monotonic clock, also inside a virtual run: for what a person waits for.
 * Threads: any, and signal handlers.
 */
class RealClock {
public:
    static int64_t nowNs() {
        timespec now{};
        // Not by clock_gettime(), which a virtual run answers itself.
        syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
        return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    }
};

}  // namespace android
