#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "utils/Timers.h"

namespace android {

/**
 * Which output's callback the worker is in, and since when: tells why nothing moves.
 * Threads: the worker enters and leaves, which never blocks; any may look.
 */
class CallbackWatch {
public:
    /** A callback in progress. */
    struct Visit {
        size_t output;    // its index, in the order registered
        nsecs_t startNs;  // monotonic
        uint32_t number;  // odd; differs for each callback
    };

    void enter(size_t output) {
        mOutput.store(output, std::memory_order_release);
        mStartNs.store(systemTime(SYSTEM_TIME_MONOTONIC), std::memory_order_release);
        mNumber.store(mNumber.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    void leave() {
        mNumber.store(mNumber.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    /** Waits until the callback in progress, if any, has lasted `patienceNs` or returns; whether it
     *  has lasted that long. */
    [[nodiscard]] bool outlasts(nsecs_t patienceNs, Visit& visit) const;

private:
    [[nodiscard]] bool look(Visit& visit) const;

    // Stored in turn, each with release: who sees a later callback's output or start sees also that
    // the number has changed.
    std::atomic<size_t> mOutput{0};
    std::atomic<nsecs_t> mStartNs{0};
    std::atomic<uint32_t> mNumber{0};  // odd inside a callback
};

}  // namespace android
