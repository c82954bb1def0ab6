#pragma once

#include <cstddef>
#include <cstdint>

#include "system/audio.h"

namespace android {

/** Bytes of a frame; 0 for a format without samples of a fixed size, or a mask without channels. */
inline size_t frameSizeOf(audio_format_t format, uint32_t channelMask) {
    return audio_channel_count_from_out_mask(channelMask) * audio_bytes_per_sample(format);
}

}  // namespace android
