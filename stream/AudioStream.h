#pragma once

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "buffer/FrameBuffer.h"
#include "interface/streamproxy.h"
#include "processor/AudioDump.h"
#include "processor/AudioProcesser.h"
#include "processor/Resampler.h"
#include "processor/VolumeMixer.h"
#include "stream/PcmConfig.h"
#include "sync/ConsumeSignal.h"
#include "sync/PriorityMutex.h"
#include "system/audio.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/Timers.h"
#include "utils/Vector.h"

namespace android {

/**
 * One input of the mix: a ring of frames in the stream's own format, which the host writes, and a
 * chain of stages through which the mixer pulls them in the mixing configuration.
 *
 * Threads: the host's threads call the audio_proxy_stream_t operations, one writer at a time; the
 * mixer's worker calls isOpened() and process(); config() runs on the thread that adds the stream
 * or registers an output. Whoever holds mLock is the input buffer's one consumer. Nobody holds it
 * while the mixer pulls but flush() and close(), for a pass over the buffers.
 *
 * A pause, a close or a flush holds against a write that began before it: such a write does not open
 * the stream again, and a close ends it at once.
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
    int setVolume(float left, float right) override EXCLUDES(mConfigLock);
    uint32_t getLatency() override;
    /** -ENOSYS: only streams with AV sync know a downstream latency. */
    int setDownstreamLatency(unsigned long latencyMs, long offsetMs) override;
    int setParameters(const char* keyValuePairs) override;
    bool isOpened() const override;
    /** 0; -ENODEV: the stream is retired. */
    int open() override;
    int pause() override;
    /** Changes nothing: a paused stream is active again with its next write. */
    int resume() override;
    /** Ends a write in progress. Then waits, if there are frames, until the mixer takes some, at most
     *  1 s; discards the rest, as flush() does. */
    int close() override EXCLUDES(mLock);
    /** Blocks up to about 1 s while the buffer is full, or until the stream is closed. The bytes
     *  taken, at most 2^31 - 1 less what makes no whole frame. */
    int write(const void* data, size_t byteCount) override;
    /** Discards every frame that is held, in the chain too; waits for a pull in progress. */
    int flush() override EXCLUDES(mLock);
    /** 0, whatever becomes of the text behind the descriptor; -ENOMEM: there is none. */
    int dump(int fd) override EXCLUDES(mConfigLock);

    /** Runs on the mixer's worker. -ENOSYS, as setDownstreamLatency(). */
    virtual int setDownstreamLatencyOffset(long offsetMs);
    /** Takes source frames out unconverted. The bytes read; -ENODEV: not open; -EINVAL: no frame
     *  fits. */
    virtual int read(void* data, size_t byteCount) EXCLUDES(mLock);
    /** Builds the chain to a mixing configuration. 0; -EINVAL: it can't be reached; -ENOMEM; the
     * former chain stays. */
    virtual int config(uint32_t sampleRate, audio_format_t format, uint32_t channelMask)
        EXCLUDES(mLock, mConfigLock);
    /**
     * Pulls up to `frameCount` frames through the chain into `output`. The frames that the last
     * stage delivered, 0 without data, or for an output that is not in the chain's target format
     * and mask; -ENODEV: not open; -EINVAL: null output; or the last stage's status.
     */
    virtual int process(sp<FrameBuffer> output, size_t frameCount) EXCLUDES(mLock);

    /** A host's write: opens the stream even for no bytes, then as write(). A pause between the two
     *  holds. */
    int openAndWrite(const void* data, size_t byteCount);

    /** Differs after the stream was closed or paused, even if it is open again. */
    uint32_t closingCount() const {
        return mPauseCount.load(std::memory_order_acquire) +
               mDiscardCount.load(std::memory_order_acquire);
    }

    /** Ends a write in progress at once; a later one is not concerned. Any thread. */
    void endWrite();
    /** Before the last close(): nothing opens the stream any more, not even a call that another
     *  thread had begun. */
    void retire() { mIsRetired.store(true, std::memory_order_release); }

protected:
    /** When a write began: what is done to the stream later holds against it. */
    struct WriteStart {
        uint32_t pauseCount;
        uint32_t closeCount;
        uint32_t discardCount;
    };
    /** Of a write that begins now. */
    WriteStart now() const;
    /** Whether the write that begins comes through openAndWrite(). Once for each. */
    bool takeHostWrite();
    bool isPausedSince(const WriteStart& start) const {
        return mPauseCount.load(std::memory_order_acquire) != start.pauseCount;
    }
    bool isClosedSince(const WriteStart& start) const {
        return mCloseCount.load(std::memory_order_acquire) != start.closeCount || isRetired();
    }
    bool isRetired() const { return mIsRetired.load(std::memory_order_acquire); }
    uint32_t flushCount() const { return mFlushCount.load(std::memory_order_acquire); }

    /**
     * Places frames in pieces of up to `pieceFrameCount`, each by `put(region, done, frameCount)`,
     * as room comes, for about a second, while `goesOn(startNs)` says so; that may begin the second
     * anew. The frames placed.
     */
    template <typename Put, typename GoesOn>
    size_t place(size_t frameCount, size_t pieceFrameCount, Put put, GoesOn goesOn);
    /** The same for the whole frames among these bytes; logs what is missed. The bytes placed. */
    template <typename GoesOn>
    size_t placeBytes(const void* data, size_t byteCount, GoesOn goesOn);
    /** At the end of a write: takes out what it placed behind the end of a close, or a flush. */
    void discardIfClosedSince(const WriteStart& start) EXCLUDES(mLock);
    void discardIfFlushedSince(uint32_t flushCount) EXCLUDES(mLock);
    static void logMissed(size_t byteCount);

    /** Closes and empties the stream, and ends every write that began before. */
    void endAndDiscard() EXCLUDES(mCloseLock, mLock);

    /** Sleeps until the consumer takes frames, the time-out or a signal, unless `isNeeded` says no
     *  once the consumer knows of the sleeper. 0, or a positive errno value. */
    template <typename IsNeeded>
    int waitUntilDataConsumed_l(const timespec* timeout, IsNeeded isNeeded);
    /** Wakes one sleeper, with a system call only if there may be one. */
    int notifyDataConsumed_l();
    /** Lets the writer look again whether it waits rightly. */
    void wakeWriter();

    const uint32_t mSampleRate;  // Hz
    const audio_format_t mFormat;
    const uint32_t mChannelMask;
    const audio_output_flags_t mFlags;
    const size_t mBufferFrameCount;
    uint32_t mDstSampleRate GUARDED_BY(mConfigLock);  // Hz
    audio_format_t mDstFormat GUARDED_BY(mConfigLock);
    uint32_t mDstChannelMask GUARDED_BY(mConfigLock);
    const size_t mFrameSize;  // bytes

private:
    /** Whole frames in `byteCount`, as many as a 32-bit byte count can report. */
    size_t wholeFrames(size_t byteCount) const;
    /** Waits a little for room; false, with a log line, once the write has taken its second. */
    bool waitForRoom(nsecs_t startNs);
    void discard_l() REQUIRES(mLock);

    // Any host thread stores; release, after the count of a pause, which the writer looks at when it
    // finds the stream closed.
    std::atomic<bool> mActive{false};
    const sp<FrameBuffer> mInputBuffer;
    Mutex mCloseLock{"close"};  // the end of a close against a write that opens the stream
    // The chain, for those who run or exchange it. See platform/utils/LockOrder.cpp.
    PriorityMutex mLock{"chain"};
    Vector<sp<AudioProcesser>> mProcessers GUARDED_BY(mLock);
    sp<Resampler> mResampler GUARDED_BY(mLock);  // one of them, or null
    PcmConfig mChainTarget GUARDED_BY(mLock) = {};
    // The chain as control threads know it. Never the worker's: they may be preempted.
    Mutex mConfigLock{"config"};
    sp<VolumeMixer> mVolumeMixer GUARDED_BY(mConfigLock);  // the last stage
    const sp<AudioDump> mAudioDump;
    ConsumeSignal<> mConsumed;  // its word is a futex
    // Each is stored before what it counts takes effect on the ring; mPauseCount also before mActive,
    // mDiscardCount after it.
    std::atomic<uint32_t> mPauseCount{0};
    std::atomic<uint32_t> mCloseCount{0};    // what ends a write: several for each close
    std::atomic<uint32_t> mDiscardCount{0};  // the end of a close
    std::atomic<uint32_t> mFlushCount{0};
    std::atomic<bool> mIsRetired{false};
    std::atomic<int> mCloserCount{0};  // of those asleep on mConsumed; published by its word
    bool mIsHostWrite = false;         // the writer's thread alone: openAndWrite() calls write()
};

template <typename Put, typename GoesOn>
size_t AudioStream::place(size_t frameCount, size_t pieceFrameCount, Put put, GoesOn goesOn) {
    nsecs_t startNs = systemTime(SYSTEM_TIME_MONOTONIC);
    size_t done = 0;
    while (done < frameCount && goesOn(startNs)) {
        void* region = nullptr;
        size_t regionFrameCount = std::min(frameCount - done, pieceFrameCount);
        if (mInputBuffer->obtainWriteBuffer(&region, regionFrameCount) == OK) {
            put(region, done, regionFrameCount);
            mInputBuffer->releaseWriteBuffer(region, regionFrameCount);
            done += regionFrameCount;
        } else if (!waitForRoom(startNs)) {
            break;
        }
    }
    return done;
}

template <typename GoesOn>
size_t AudioStream::placeBytes(const void* data, size_t byteCount, GoesOn goesOn) {
    const auto* const source = static_cast<const uint8_t*>(data);
    const size_t frameCount = wholeFrames(byteCount);
    const size_t placed = place(
        frameCount, frameCount,
        [this, source](void* region, size_t done, size_t regionFrameCount) {
            memcpy(region, source + done * mFrameSize, regionFrameCount * mFrameSize);
        },
        goesOn);
    const size_t written = placed * mFrameSize;
    if (written < byteCount) {
        logMissed(byteCount - written);
    }
    mAudioDump->dump(data, written);
    return written;
}

}  // namespace android
