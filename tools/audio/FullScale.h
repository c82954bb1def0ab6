#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace android {

/** A sample of the mix, 16-bit or Q4.27, with 32 bits to full scale; Q4.27 may lie beyond. */
inline int64_t fullScaleSample(const void* samples, size_t index, uint32_t bits) {
    return bits == 16 ? int64_t{static_cast<const int16_t*>(samples)[index]} * 65536
                      : int64_t{static_cast<const int32_t*>(samples)[index]} * 16;
}

/** The same, held to full scale. */
inline int32_t heldSample(int64_t sample) {
    return static_cast<int32_t>(std::clamp<int64_t>(sample, INT32_MIN, INT32_MAX));
}

/** Q4.27 of a real sample with 1.0 as full scale, 24 dB above it at most. */
inline int32_t q27Of(double sample) {
    // Not a number is silence: one broken sample must not become a full-scale click.
    const double scaled = std::isnan(sample) ? 0.0 : std::rint(sample * 134217728.0);
    return static_cast<int32_t>(std::clamp(scaled, -2147483648.0, 2147483647.0));
}

}  // namespace android
