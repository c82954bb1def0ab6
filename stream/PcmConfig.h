#pragma once

#include <cstdint>

#include "system/audio.h"

namespace android {

/** What PCM looks like at one end of a chain. */
struct PcmConfig {
    uint32_t sampleRate;  // Hz
    audio_format_t format;
    uint32_t channelMask;
};

}  // namespace android
