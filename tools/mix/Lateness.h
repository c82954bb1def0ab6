#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace android {

/** How often and how long a mix stood still because an input had less than a block. */
struct Lateness {
    /** Shorter waits are none: a mix in real time has a block of 20 ms in hand. */
    static constexpr std::chrono::nanoseconds kLeast{20'000'000};

    int64_t count = 0;
    std::chrono::nanoseconds total{0};
    std::chrono::nanoseconds longest{0};

    /** False: too short to count. */
    bool add(std::chrono::nanoseconds wait) {
        if (wait < kLeast) {
            return false;
        }
        count += 1;
        total += wait;
        longest = std::max(longest, wait);
        return true;
    }
};

}  // namespace android
