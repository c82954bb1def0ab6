#pragma once

#include "processor/AudioProcesser.h"
#include "system/audio.h"

struct resampler_itfe;

namespace android {

/**
 * Converts interleaved 16-bit PCM from one sample rate to another, through the platform's
 * resampler. Threads: one at a time.
 */
class Resampler : public AudioProcesser {
public:
    /** The format only sizes frames. Where the platform makes no resampler for the rates or the
     *  channels, process() logs and answers -ENODEV. */
    Resampler(unsigned int srcSampleRate, unsigned int dstSampleRate, audio_format_t format,
              unsigned int channelMask);
    ~Resampler() override;

    bool isCreated() const { return mResampler != nullptr; }
    /** 0; -EINVAL: not these rates or channels; -ENOMEM. */
    status_t createStatus() const { return mCreateStatus; }

    ssize_t process(size_t frameCount) override;

    /** Forgets the signal so far: the next input starts from silence, as after construction. */
    void reset();

    /** Input frames that `outFrameCount` output frames need, rounded up. */
    virtual size_t getInputFramesRequired(size_t outFrameCount);
    /** Pulls what `frameCount` output frames need from `in`. The output frames written; -EINVAL for
     *  a null `in`. */
    virtual ssize_t resample(void* out, size_t frameCount, sp<FrameBuffer> in);

private:
    const uint32_t mSrcSampleRate;  // Hz
    const uint32_t mDstSampleRate;  // Hz
    const uint32_t mQuality = 4;
    const uint32_t mFrameSize;  // bytes
    resampler_itfe* mResampler = nullptr;
    status_t mCreateStatus;
};

}  // namespace android
