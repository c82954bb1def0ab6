#pragma once

#include <atomic>
#include <cstdint>

namespace android {

/**
 * Ends one thread's sleep, or the next one if it is awake: a flag that any thread sets and the
 * sleeper takes. No setting is lost, and none waits.
 *
 * Threads: any may set(); one sleeper takes and sleeps.
 * Atomic:  the type of the word, as in RingPositions.
 */
template <template <typename> class Atomic = std::atomic>
class WakeFlag {
public:
    /** Publishes what was done before; wakes by `wake(word)` only a sleeper. */
    template <typename Wake>
    void set(Wake wake) {
        if (mWord.exchange(kSet, std::memory_order_acq_rel) == kAsleep) {
            wake(mWord);
        }
    }

    /** Whether it was set, and sees what was done before; it is clear afterwards. */
    bool take() {
        return mWord.load(std::memory_order_relaxed) == kSet &&
               mWord.exchange(kClear, std::memory_order_acquire) == kSet;
    }

    /** Sleeps by `sleep(word, expected)`, which must not sleep when the word no longer holds
     *  `expected` and says whether to go on, until it is set or `sleep` says no. Leaves it set. */
    template <typename Sleep>
    void wait(Sleep sleep) {
        uint32_t found = kClear;
        if (!mWord.compare_exchange_strong(found, kAsleep, std::memory_order_acq_rel)) {
            return;  // set
        }
        bool goesOn = true;
        while (goesOn && mWord.load(std::memory_order_acquire) == kAsleep) {
            goesOn = sleep(mWord, kAsleep);
        }
        found = kAsleep;
        mWord.compare_exchange_strong(found, kClear, std::memory_order_acq_rel);
    }

private:
    static constexpr uint32_t kClear = 0;
    static constexpr uint32_t kSet = 1;
    static constexpr uint32_t kAsleep = 2;

    Atomic<uint32_t> mWord{kClear};
};

}  // namespace android
