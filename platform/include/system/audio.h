/** Sample formats, channel masks and output flags, as the platform numbers them. */
#pragma once

#include <stddef.h>
#include <stdint.h>

enum audio_format_t : uint32_t {
    AUDIO_FORMAT_DEFAULT = 0,
    AUDIO_FORMAT_PCM_16_BIT = 1,
    AUDIO_FORMAT_PCM_8_BIT = 2,
    AUDIO_FORMAT_PCM_32_BIT = 3,
    AUDIO_FORMAT_PCM_8_24_BIT = 4,
    AUDIO_FORMAT_PCM_FLOAT = 5,
    AUDIO_FORMAT_PCM_24_BIT_PACKED = 6,
    AUDIO_FORMAT_IEC61937 = 0x0D000000,
};

typedef uint32_t audio_channel_mask_t;

enum : uint32_t {
    AUDIO_CHANNEL_OUT_MONO = 0x1,
    AUDIO_CHANNEL_OUT_STEREO = 0x3,
    AUDIO_CHANNEL_OUT_5POINT1 = 0x3F,
};

enum audio_output_flags_t : uint32_t {
    AUDIO_OUTPUT_FLAG_NONE = 0,
    AUDIO_OUTPUT_FLAG_HW_AV_SYNC = 0x40,
};

/** Bytes of one sample; 0 for a format without a fixed size. */
static inline size_t audio_bytes_per_sample(audio_format_t format) {
    switch (format) {
        case AUDIO_FORMAT_PCM_32_BIT:
        case AUDIO_FORMAT_PCM_8_24_BIT:
        case AUDIO_FORMAT_PCM_FLOAT:
            return 4;
        case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            return 3;
        case AUDIO_FORMAT_PCM_16_BIT:
        case AUDIO_FORMAT_IEC61937:
            return 2;
        case AUDIO_FORMAT_PCM_8_BIT:
            return 1;
        default:
            return 0;
    }
}

/**
 * Channels of an output mask. Bits 30-31 say how to read it: 0 positional (a bit a loudspeaker),
 * 2 indexed (a bit a channel); any other representation has no channels.
 */
static inline uint32_t audio_channel_count_from_out_mask(audio_channel_mask_t mask) {
    switch (mask >> 30) {
        case 0:
            return static_cast<uint32_t>(__builtin_popcount(mask & 0x300FFFFFU));
        case 2:
            return static_cast<uint32_t>(__builtin_popcount(mask & 0x3FFFFFFFU));
        default:
            return 0;
    }
}
