#pragma once

#include <cstddef>
#include <cstdint>

#include "buffer/FrameBuffer.h"
#include "pipeline/AudioThread.h"
#include "pipeline/CallbackWatch.h"
#include "stream/PcmConfig.h"
#include "system/audio.h"

namespace android {

/**
 * The worker that mixes: each cycle pulls one block of frames from every open stream into the mix
 * buffer and hands it to every output. The first output fixes the mixing configuration. While none
 * is registered, the next one may change it.
 *
 * The streams and the outputs' callbacks pace the mixer; it has no clock.
 * Threads: as AudioThread. The worker neither allocates nor frees.
 */
class MixerThread : public AudioThread {
public:
    /** 44100 Hz, 16-bit, stereo. */
    MixerThread();
    ~MixerThread() override;

    /** 0; -ENOMEM: no mix buffer; another negative errno value: no worker. */
    [[nodiscard]] status_t initCheck() EXCLUDES(mLock);

    /** Sets a new mixing configuration and mix buffer. */
    void set(unsigned int sampleRate, audio_format_t format, unsigned int channelMask,
             unsigned int frameCount) REQUIRES(mLock);
    /** True if the output has the mixer's rate, format and mask. */
    bool match(const sp<AudioOutput>& output) EXCLUDES(mMixLock);

    /** Configures the stream for the mix, then lists it. 0; -EINVAL: null; or config()'s status. */
    [[nodiscard]] int addStream(sp<AudioStream> stream) override
        EXCLUDES(mListLock, mLock, mCommandLock);
    int removeStream(sp<AudioStream> stream) override EXCLUDES(mListLock, mLock, mCommandLock);
    /** 0; -EINVAL: null, unlike the outputs already listed, or not convertible to; -ENOMEM: for the
     *  mix or a stream's conversion. The next output configures all again. */
    [[nodiscard]] int registerOutput(sp<AudioOutput> output) override
        EXCLUDES(mListLock, mLock, mCommandLock);

    /** Half a cycle, in whole ms. */
    int64_t computeSleepTimeNs_l() override REQUIRES(mLock);
    /** The frames delivered; 0 or a negative status if the block is empty. */
    ssize_t threadLoopProcess_l() override REQUIRES(mLock);
    void notifyDataMixed_l(void* buffer, size_t byteCount) REQUIRES(mLock);

    /** Writes the mixer's lines, then every stream's. Waits up to 200 ms for a callback in
     *  progress, then adds a line about it. 0. */
    int dump(int fd) EXCLUDES(mListLock);

private:
    void adopt_l(unsigned int sampleRate, audio_format_t format, unsigned int channelMask,
                 unsigned int frameCount, const sp<FrameBuffer>& mixBuffer) REQUIRES(mLock);
    PcmConfig mix() EXCLUDES(mMixLock);
    [[nodiscard]] int reconfigure_l(const sp<AudioOutput>& output) REQUIRES(mListLock)
        EXCLUDES(mLock);
    [[nodiscard]] int mixStreams_l() REQUIRES(mLock);
    void deliver_l(int frameCount) REQUIRES(mLock);

    uint32_t mSampleRate GUARDED_BY(mLock) = 0;  // Hz
    audio_format_t mFormat GUARDED_BY(mLock) = AUDIO_FORMAT_DEFAULT;
    uint32_t mChannelMask GUARDED_BY(mLock) = 0;
    size_t mFrameCount GUARDED_BY(mLock) = 0;  // frames a cycle
    size_t mFrameSize GUARDED_BY(mLock) = 0;   // bytes
    sp<FrameBuffer> mMixBuffer GUARDED_BY(mLock);
    CallbackWatch mCallbackWatch;
    Mutex mMixLock{"mix"};                     // never the worker's
    PcmConfig mMix GUARDED_BY(mMixLock) = {};  // the first three, for control threads
    // A stream got no memory for the current configuration. No output is listed then.
    bool mIncomplete GUARDED_BY(mListLock) = false;
};

}  // namespace android
