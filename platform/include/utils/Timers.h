#pragma once

#include <stdint.h>

typedef int64_t nsecs_t;

enum { SYSTEM_TIME_REALTIME = 0, SYSTEM_TIME_MONOTONIC = 1 };

/** The given clock, in ns. */
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
