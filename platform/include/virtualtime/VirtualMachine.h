#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace android {

/**
 * Runs a program's threads one at a time, under a clock that it turns itself: real threads, of which
 * one runs; a seed chooses who is next; when all wait, time jumps to the next deadline. So a run takes
 * as long as its computing, and the same seed gives the same run on every machine.
 *
 * It stands behind the functions of the C library that wait or tell the time: mutexes, reader-writer
 * locks, conditions, futexes, clocks, sleeps, thread start and join. A program that is linked with
 * streamproxy_virtualtime has them in front of the C library's own, for all libraries that it loads.
 * Threads outside a run get the C library's.
 *
 * Waiting that does not go through these functions is real: a read from a pipe stops the virtual
 * clock until it returns. A thread must not spin without calling any of them.
 */
class VirtualMachine {
public:
    /** Which of the threads that can go on is next. */
    enum class Order {
        UNTIL_BLOCKED,  // each runs until it waits; then the one that has been ready longest
        UNIFORM,        // at each step any, with equal probability
        // The ready one of the highest priority. Priorities are random; at a few random steps the
        // running thread falls below all others. Finds an ordering of n events with probability
        // 1/(threads x steps^(n-1)): Burckhardt et al., "A randomized scheduler with probabilistic
        // guarantees of finding bugs", ASPLOS 2010.
        PRIORITIES,
    };

    /** Rates count in a million steps; a step is one call of a function named above. */
    struct Config {
        uint64_t seed = 0;
        Order order = Order::UNTIL_BLOCKED;
        uint32_t changePointCount = 3;      // PRIORITIES: where priorities change, and ...
        uint64_t changePointSpan = 20'000;  // ... among how many steps
        int64_t clockReadNs = 20;           // so that a loop until a time ends
        int64_t maxStepCostNs = 0;          // any step takes 0 to this long
        uint32_t stallRate = 0;             // steps that take longer, ...
        int64_t maxStallNs = 0;             // ... up to this
        int64_t maxOversleepNs = 0;         // how late a deadline may wake
        uint32_t spuriousRate = 0;          // steps at which a wait ends without a reason
        uint64_t maxStepCount = 0;          // a longer run is ended as stuck; 0: no limit
        std::string repeatCommand = {};     // printed when a run is stuck
    };

    /** What a run was. */
    struct Summary {
        uint64_t stepCount;
        uint64_t switchCount;
        int64_t elapsedNs;  // of its clock; of it, steps took busyNs, and all waited for the rest
        int64_t busyNs;
        uint64_t hash;  // of the schedule: who made which step, and when
    };

    /**
     * Runs `body` on the calling thread, with every thread that it starts, and returns when all of
     * them have ended. If nothing can go on, or after too many steps, it prints where each thread
     * waits and ends the process with SIGABRT. Throws what `body` throws. One run at a time in a
     * process; not inside another.
     */
    static Summary run(const Config& config, const std::function<void()>& body);

    /** Whether the calling thread belongs to a run. */
    static bool isInside();
    /** Of the run that the calling thread belongs to, so far. */
    static Summary progress();
};

}  // namespace android
