/**
 * The exact input step of one output frame: in / out frames, in lowest terms.
 */
#pragma once

#include <cstdint>
#include <numeric>

namespace android {

struct RateRatio {
    RateRatio(uint32_t inRateHz, uint32_t outRateHz)
        : in(inRateHz / std::gcd(inRateHz, outRateHz)),
          out(outRateHz / std::gcd(inRateHz, outRateHz)) {}

    bool lowersRate() const { return in > out; }

    /** Input frames of one output frame, rounded up. */
    uint32_t inFramesRoundedUp() const { return (in + out - 1) / out; }

    const uint32_t in;
    const uint32_t out;
};

}  // namespace android
