#pragma once

#include <atomic>
#include <cstdint>

#include "sync/ConsumeSignal.h"
#include "sync/Futex.h"

namespace android {

/**
 * Lets any number of threads wait for what others do. Those pay one atomic operation where nobody
 * waits, and never wait themselves.
 */
class Progress {
public:
    /** After something was done. */
    void made() {
        mSignal.notify([](std::atomic<uint32_t>& word) { return Futex::wake(word, Futex::kAll); });
    }

    /** Sleeps while `mustWait()`, which sees what was done before made(), until the deadline of the
     *  monotonic clock. Whether it need not wait any more. Any thread. */
    template <typename MustWait>
    bool waitWhile(MustWait mustWait, int64_t deadlineNs = Futex::kNoDeadline) {
        bool isInTime = true;
        while (mustWait() && isInTime) {
            mSignal.wait(mustWait, [&](std::atomic<uint32_t>& word, uint32_t expected) {
                isInTime = Futex::waitUntil(word, expected, deadlineNs);
                return 0;
            });
        }
        return !mustWait();
    }

private:
    ConsumeSignal<> mSignal;
};

}  // namespace android
