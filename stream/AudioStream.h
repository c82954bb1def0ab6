#pragma once

#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "buffer/FrameBuffer.h"
#include "interface/streamproxy.h"
#include "processor/AudioDump.h"
#include "processor/AudioProcesser.h"
#include "processor/VolumeMixer.h"
#include "stream/ConsumeSignal.h"
#include "system/audio.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/Vector.h"

namespace android {

/**
 * One input of the mix: a ring of frames in the stream's own format, which the host writes, and a
 * chain of stages through which the mixer pulls them in the mixing configuration.
 *
 * Threads: the host's threads call the audio_proxy_stream_t operations, one writer at a time; the
 * mixer's worker calls isOpened() and process(); config() runs on the thread that adds the stream
 * or registers an output. Whoever holds mLock is the input buffer's one consumer.
 */
class AudioStream : public audio_proxy_stream_t, public virtual RefBase {
public:
    /** Validates nothing; config() refuses what can't be converted. The input buffer holds the low
     *  32 bits of `bufferFrameCount` frames. */
    AudioStream(uint32_t sampleRate, audio_format_t format, uint32_t channelMask,
                audio_output_flags_t flags, size_t bufferFrameCount);
    ~AudioStream() override;

    /** The last stage's gains; -ENODEV before the first successful config(). A new chain starts at
     *  unity. */
    int setVolume(float left, float right) override EXCLUDES(mLock);
    uint32_t getLatency() override;
    /** -ENOSYS: only streams with AV sync know a downstream latency. */
    int setDownstreamLatency(unsigned long latencyMs, long offsetMs) override;
    int setParameters(const char* keyValuePairs) override;
    bool isOpened() const override;
    int open() override;
    int pause() override;
    /** Changes nothing: a paused stream is active again with its next write. */
    int resume() override;
    /** Waits, if there are frames, until the mixer takes some, at most 1 s; discards the rest. */
    int close() override EXCLUDES(mLock);
    /** Blocks up to about 1 s while the buffer is full. The bytes taken, at most 2^31 - 1 less what
     *  makes no whole frame. */
    int write(const void* data, size_t byteCount) override;
    /** Discards what is held; waits for a pull in progress. */
    int flush() override EXCLUDES(mLock);
    /** 0, whatever becomes of the text behind the descriptor; -ENOMEM: there is none. */
    int dump(int fd) override EXCLUDES(mLock);

    /** Runs on the mixer's worker. -ENOSYS, as setDownstreamLatency(). */
    virtual int setDownstreamLatencyOffset(long offsetMs);
    /** Takes source frames out unconverted. The bytes read; -ENODEV: not open; -EINVAL: no frame
     *  fits. */
    virtual int read(void* data, size_t byteCount) EXCLUDES(mLock);
    /** Builds the chain to a mixing configuration. 0; -EINVAL: it can't be reached; -ENOMEM; the
     * former chain stays. */
    virtual int config(uint32_t sampleRate, audio_format_t format, uint32_t channelMask)
        EXCLUDES(mLock);
    /**
     * Pulls up to `frameCount` frames through the chain into `output`. The frames that the last
     * stage delivered, 0 without data, or for an output that is not in the chain's target format
     * and mask; -ENODEV: not open; -EINVAL: null output; or the last stage's status.
     */
    virtual int process(sp<FrameBuffer> output, size_t frameCount) EXCLUDES(mLock);

protected:
    /** Sleeps until the consumer takes frames, or the time-out, unless `isNeeded` says no once the
     *  consumer knows of the sleeper. Signals don't end the sleep. 0, or a positive errno value. */
    template <typename IsNeeded>
    int waitUntilDataConsumed_l(const timespec* timeout, IsNeeded isNeeded);
    /** Wakes one sleeper, with a system call only if there may be one. */
    int notifyDataConsumed_l();

    const uint32_t mSampleRate;  // Hz
    const audio_format_t mFormat;
    const uint32_t mChannelMask;
    const audio_output_flags_t mFlags;
    const size_t mBufferFrameCount;
    uint32_t mDstSampleRate GUARDED_BY(mLock);  // Hz
    audio_format_t mDstFormat GUARDED_BY(mLock);
    uint32_t mDstChannelMask GUARDED_BY(mLock);
    const size_t mFrameSize;  // bytes

private:
    std::atomic<bool> mActive{false};  // any host thread stores; orders nothing
    const sp<FrameBuffer> mInputBuffer;
    Mutex mLock{"chain"};  // see platform/utils/LockOrder.cpp
    Vector<sp<AudioProcesser>> mProcessers GUARDED_BY(mLock);
    sp<VolumeMixer> mVolumeMixer GUARDED_BY(mLock);
    const sp<AudioDump> mAudioDump;
    ConsumeSignal<> mConsumed;  // its word is a futex
};

}  // namespace android
