#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "system/audio.h"
#include "utils/RefBase.h"

namespace android {

/** Receives mixed audio. Threads: the configuration is fixed at construction. */
class AudioOutput : public RefBase {
public:
    AudioOutput(uint32_t sampleRate, audio_format_t format, uint32_t channelMask,
                audio_output_flags_t flags)
        : mSampleRate(sampleRate), mFormat(format), mChannelMask(channelMask), mFlags(flags) {}

    /** Runs on the worker. `byteCount` bytes of whole frames, valid during the call. */
    virtual ssize_t onDataProcessed(void* buffer, size_t byteCount) = 0;

    /** All four fields of `other` equal this output's; false for null. */
    virtual bool match(sp<AudioOutput> other) {
        return other != nullptr && mSampleRate == other->mSampleRate && mFormat == other->mFormat &&
               mChannelMask == other->mChannelMask && mFlags == other->mFlags;
    }

    const uint32_t mSampleRate;  // Hz
    const audio_format_t mFormat;
    const uint32_t mChannelMask;
    const audio_output_flags_t mFlags;  // compared by match() only
};

}  // namespace android
