#pragma once

#include <cstdint>

namespace android {

/** How the bytes of a pipe are to be read: interleaved little-endian samples, no header. */
struct PipeFormat {
    uint32_t rateHz = 48000;
    uint32_t channelCount = 2;
    uint32_t bits = 16;  // or 32
    uint32_t frameBytes() const { return channelCount * bits / 8; }
};

}  // namespace android
