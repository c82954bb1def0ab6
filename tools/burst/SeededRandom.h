#pragma once

#include <cstdint>
#include <random>

namespace android {

/** The same numbers from the same seed on every machine, which the library's distributions do not
 *  promise. */
class SeededRandom {
public:
    explicit SeededRandom(uint64_t seed) : mEngine(seed) {}

    /** From `low` to `high`, both included. The span is far below 2^64, so that the remainder's
     *  preference for low numbers does not matter. */
    int64_t between(int64_t low, int64_t high) {
        const auto span = static_cast<uint64_t>(high - low) + 1;
        return low + static_cast<int64_t>(mEngine() % span);
    }

private:
    std::mt19937_64 mEngine;
};

}  // namespace android
