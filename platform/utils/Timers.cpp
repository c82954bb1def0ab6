#include "utils/Timers.h"

#include <time.h>

nsecs_t systemTime(int clock) {
    timespec now{};
    clock_gettime(clock == SYSTEM_TIME_REALTIME ? CLOCK_REALTIME : CLOCK_MONOTONIC, &now);
    return static_cast<nsecs_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}
