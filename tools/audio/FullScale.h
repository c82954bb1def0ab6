#pragma once

#include <algorithm>
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

}  // namespace android
