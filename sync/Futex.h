#pragma once

#include <time.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace android {

/** The system's sleep on a word. Threads: any. */
class Futex {
public:
    /** Sleeps while the word has this value: until a wake-up, the time-out (null: none) or a signal.
     *  0, or an errno value: EAGAIN where the word had another value, ETIMEDOUT, EINTR. */
    static int waitWhile(std::atomic<uint32_t>& word, uint32_t value, const timespec* timeout);

    static constexpr int64_t kNoDeadline = INT64_MAX;
    /** The same until `deadlineNs` of the monotonic clock; false once that has passed. */
    static bool waitUntil(std::atomic<uint32_t>& word, uint32_t value, int64_t deadlineNs);
    /** So long from now, or no deadline where that can't be told. */
    static int64_t deadlineIn(int64_t durationNs);

    static constexpr int kAll = INT_MAX;
    /** Wakes up to `sleeperCount` sleepers. 0, or an errno value. */
    static int wake(std::atomic<uint32_t>& word, int sleeperCount);
};

}  // namespace android
