#pragma once

#include <cstdint>

#include "interface/streamproxy.h"

namespace android {

// Rates, formats and channels as the library's configurations have them.

constexpr int kMinRateHz = STREAMPROXY_MIN_SAMPLE_RATE;
constexpr int kMaxRateHz = STREAMPROXY_MAX_SAMPLE_RATE;

/** 16 bits, or 32: Q4.27. */
constexpr uint32_t formatOf(uint32_t bits) {
    return bits == 16 ? STREAMPROXY_FORMAT_PCM_16_BIT : STREAMPROXY_FORMAT_PCM_32_BIT;
}

/** The first channels of a mask, from 1 to STREAMPROXY_MAX_CHANNEL_COUNT. */
constexpr uint32_t channelMaskOf(uint32_t channelCount) {
    return (1u << channelCount) - 1;
}
static_assert(channelMaskOf(2) == STREAMPROXY_CHANNEL_MASK_STEREO);

}  // namespace android
