#pragma once

#include <atomic>
#include <cstdint>

namespace android {

/**
 * How a writer sleeps until the consumer takes frames, on a word of which bit 0 says that a writer
 * is, or is about to be, asleep. The writer sets the bit, looks once more whether it must sleep,
 * and sleeps on the word; the consumer takes frames, clears the bit, and wakes whoever had set it.
 *
 * No wake-up is lost: of the two changes of the word one comes first. If it is the writer's, the
 * consumer sees the bit and wakes, and a clear between the set and the sleep ends the sleep at
 * once. If it is the consumer's, the writer has acquired with it that the frames are gone.
 *
 * That is for one sleeper. Where there may be two, such as a write that ends and a close, `wake` has
 * to wake both: the word does not tell how many there are.
 *
 * Threads: any may wait; one consumer at a time notifies.
 * Atomic:  the type of the word, as in RingPositions.
 */
template <template <typename> class Atomic = std::atomic>
class ConsumeSignal {
public:
    /**
     * Sleeps by `sleep(word, expected)`, which must not sleep when the word no longer holds
     * `expected`, unless `isNeeded()` says no once the consumer knows of the sleeper.
     * What `sleep` returned, or 0.
     */
    template <typename IsNeeded, typename Sleep>
    int wait(IsNeeded isNeeded, Sleep sleep) {
        const uint32_t expected = mWord.fetch_or(kWaiting, std::memory_order_acq_rel) | kWaiting;
        return isNeeded() ? sleep(mWord, expected) : 0;
    }

    /** After frames were taken: wakes by `wake(word)` if there may be a sleeper. What `wake`
     *  returned, or 0. */
    template <typename Wake>
    int notify(Wake wake) {
        const uint32_t former = mWord.fetch_and(~kWaiting, std::memory_order_acq_rel);
        return (former & kWaiting) != 0 ? wake(mWord) : 0;
    }

private:
    static constexpr uint32_t kWaiting = 1;

    Atomic<uint32_t> mWord{0};
};

}  // namespace android
