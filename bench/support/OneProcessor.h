#pragma once

#include <sched.h>

/**
 * Keeps this thread and those that it starts on one processor while it lives: the time does not
 * depend on where the system puts them.
 */
class OneProcessor {
public:
    enum class Which { kCurrent, kFirst, kLast };  // of those that the process may use

    explicit OneProcessor(Which which = Which::kCurrent) {
        sched_getaffinity(0, sizeof mFormer, &mFormer);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(find(which), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof mFormer, &mFormer); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    size_t find(Which which) const {
        auto found = static_cast<size_t>(sched_getcpu());
        for (size_t i = CPU_SETSIZE; which == Which::kFirst && i-- > 0;) {
            found = CPU_ISSET(i, &mFormer) ? i : found;
        }
        for (size_t i = 0; which == Which::kLast && i < CPU_SETSIZE; ++i) {
            found = CPU_ISSET(i, &mFormer) ? i : found;
        }
        return found;
    }

    cpu_set_t mFormer;
};
