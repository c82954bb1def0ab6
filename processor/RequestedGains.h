#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <optional>

namespace android {

/** Linear gains of a stereo stage, 0.0 to 1.0. */
struct Gains {
    float left;
    float right;
    bool operator==(const Gains&) const = default;
};

/**
 * The gains that control threads ask for, and whether the processing thread has yet to take them
 * over. All of it is one word: a control thread that the system preempts in the middle of a change
 * holds up nobody, the mixer least of all.
 *
 * Threads: any. Nothing blocks.
 */
class RequestedGains {
public:
    explicit RequestedGains(Gains gains) : mWord(wordOf(gains)) {}

    Gains get() const { return gainsOf(mWord.load(std::memory_order_relaxed)); }
    bool isChanged() const { return (mWord.load(std::memory_order_relaxed) & kChanged) != 0; }

    /** Gains equal to the last ones are no change. */
    void set(Gains gains) {
        uint64_t word = mWord.load(std::memory_order_relaxed);
        while (gainsOf(word) != gains &&
               !mWord.compare_exchange_weak(word, wordOf(gains) | kChanged,
                                            std::memory_order_relaxed)) {
        }
    }

    /** The gains, if they changed since the last call. */
    std::optional<Gains> takeChange() {
        if (!isChanged()) {
            return std::nullopt;
        }
        return gainsOf(mWord.fetch_and(~kChanged, std::memory_order_relaxed));
    }

private:
    // The left gain's sign, which no gain from 0.0 to 1.0 needs.
    static constexpr uint64_t kChanged = uint64_t{1} << 63;

    static uint64_t wordOf(Gains gains) {
        // 0.0 takes the sign off a -0.0.
        const uint64_t left = std::bit_cast<uint32_t>(gains.left + 0.0F);
        return left << 32 | std::bit_cast<uint32_t>(gains.right);
    }
    static Gains gainsOf(uint64_t word) {
        return {std::bit_cast<float>(static_cast<uint32_t>((word & ~kChanged) >> 32)),
                std::bit_cast<float>(static_cast<uint32_t>(word))};
    }

    std::atomic<uint64_t> mWord;  // orders nothing
    static_assert(std::atomic<uint64_t>::is_always_lock_free);
};

}  // namespace android
