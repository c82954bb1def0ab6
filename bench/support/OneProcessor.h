#pragma once

#include <sched.h>

/**
 * While it lives, this thread and those that it starts share one processor: the time that passes is
 * the work of all of them, and does not depend on which of them the system puts where.
 */
class OneProcessor {
public:
    OneProcessor() {
        sched_getaffinity(0, sizeof mFormer, &mFormer);
        cpu_set_t here;
        CPU_ZERO(&here);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
        sched_setaffinity(0, sizeof here, &here);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof mFormer, &mFormer); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t mFormer;
};
