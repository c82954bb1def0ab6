#pragma once

#include "processor/AudioProcesser.h"
#include "system/audio.h"

namespace android {

/**
 * Changes the channel layout of interleaved PCM; format and rate stay. Each output frame holds the
 * first samples of its input frame, as many as fit, then silence.
 * Threads: one at a time.
 */
class ChannelMixer : public AudioProcesser {
public:
    /** Masks without channels and formats without a sample size are logged; process() then answers
     *  -ENODEV. */
    ChannelMixer(unsigned int srcChannelMask, unsigned int dstChannelMask, audio_format_t format);

    ssize_t process(size_t frameCount) override;

    /** Converts `inByteCount` bytes. The bytes written; -EINVAL: no bytes, or a null pointer. */
    ssize_t adjust(void* out, size_t inByteCount, void* in);
    /** Pulls up to `frameCount` frames from `in`. The frames written, or a negative status. */
    ssize_t adjust(void* out, size_t frameCount, const sp<FrameBuffer>& in);

private:
    const size_t mSrcChannelCount;
    const size_t mDstChannelCount;
    const size_t mSampleSize;    // bytes
    const size_t mSrcFrameSize;  // bytes
    const size_t mDstFrameSize;  // bytes
    const bool mValid;
};

}  // namespace android
