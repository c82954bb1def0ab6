#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "avsync/AVSyncBridge.h"
#include "hwsync/HwSyncBurstObserver.h"
#include "hwsync/HwSyncBurstParser.h"
#include "hwsync/HwSyncPolicy.h"
#include "stream/AudioStream.h"
#include "stream/FrameCarry.h"
#include "sync/PriorityMutex.h"
#include "utils/Mutex.h"

namespace android {

/**
 * A stream whose writes carry HW-sync bursts: a header with a timestamp, then PCM. The headers are
 * stripped; each lets the policy compare its timestamp with the AV-sync clock and re-anchor the
 * clock, insert silence or drop audio. Everything behind the input buffer is the plain stream's.
 *
 * Threads: one writer at a time; any thread may control. While the stream is open its parser holds
 * a reference to it; close() ends that.
 * Locks:   mLifecycle, the parser's lock, mPlayState, mBridgeLock; mParameters, mLatency,
 *          mBridgeLock. A parser callback, which runs under the parser's lock, takes only
 *          mPlayState, mBridgeLock and what a plain write takes.
 *
 * A pause holds: the write that it strikes keeps its payload for as long as a write may wait, about
 * a second. resume() or open() within that time lets it go on, for another second; otherwise it gives
 * the rest up and the stream stays paused. Its headers leave the clock alone meanwhile.
 */
class TunnelStream : public AudioStream, public HwSyncBurstObserver {
public:
    /** As AudioStream's. Makes no bridge; the "hw_av_sync" parameter does. */
    TunnelStream(uint32_t sampleRate, audio_format_t format, uint32_t channelMask,
                 audio_output_flags_t flags, uint32_t bufferFrameCount);
    ~TunnelStream() override;

    /** 0; -EINVAL: a negative offset of more than the latency, nothing is stored. */
    int setDownstreamLatency(unsigned long latencyMs, long offsetMs) override;
    int setDownstreamLatencyOffset(long offsetMs) override;
    /** "hw_av_sync": the id of the clock; makes a bridge unless there is one of that id. 0, also
     *  where none can be made; -ENOMEM: no memory to read the text. */
    int setParameters(const char* keyValuePairs) override;

    /** -ENOSYS: the parser refuses. A closed stream's waits for a parser callback in progress, as
     *  close() does. */
    int open() override;
    int pause() override;
    /** Opens the stream for the payload of a write that waits; otherwise the next write does. */
    int resume() override;
    /** Ends silence that is being written, and keeps a pending drop. Waits for the bridge. */
    int flush() override;
    /** Ends a write in progress. The next write begins a new programme: a search for a header, with
     *  nothing to drop. */
    int close() override;
    /** The bytes parsed, normally all; payload that found no room in time is not reported. */
    int write(const void* data, size_t byteCount) override;

    int onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int burstByteCount,
                            unsigned long ptsNs) override;
    int onBurstPayloadParsed(const void* data, unsigned long byteCount) override;

    /** `onlyIfChanged`: tells nobody when neither the pair nor its sum changes. */
    int setLatency(unsigned long latencyMs, long offsetMs, bool onlyIfChanged);
    /** Writes silence ahead of what is parsed next, unless the stream is paused; a pause, a flush or
     *  a close ends it. Whole frames. Writer's thread. */
    void fill(unsigned long durationMs);
    /** Discards that much of the payload that is parsed next, instead of what is still to be
     *  discarded. Whole frames. Writer's thread. */
    void drop(unsigned long durationMs);
    void updateMode(hw_sync_mode_t mode) EXCLUDES(mPlayState);

private:
    /** Marks that the writer's thread is inside a parser callback. */
    class ParserCallback;

    sp<BridgeHalHidl> bridge() const EXCLUDES(mBridgeLock);
    int setLatency_l(unsigned long latencyMs, long offsetMs, bool onlyIfChanged) REQUIRES(mLatency);
    /** As open(); for a write that began then, if there is one, and was not paused since. */
    int open(const WriteStart* write) EXCLUDES(mLifecycle, mPlayState);
    int startPlaying_l() REQUIRES(mPlayState);
    WriteStart writeInProgress() const { return mWrite.value_or(now()); }
    /** A write that began then has to end. */
    bool isOver(const WriteStart& start) const {
        return isClosedSince(start) || mUnregistering.load(std::memory_order_acquire) > 0;
    }
    void playOn(const WriteStart& start) EXCLUDES(mPlayState);
    /** The policy's decision; the clock is anchored already. -ENOSYS: nothing to decide. */
    int decide_l(hw_sync_mode_t mode, uint64_t ptsNs, long& durationMs) REQUIRES(mPlayState);
    void updateMode_l(hw_sync_mode_t mode) REQUIRES(mPlayState);
    void enterHeldMode() EXCLUDES(mPlayState);
    /** As fill(), unless the stream was flushed since `flushes` were counted. */
    void fillUnlessFlushed(unsigned long durationMs, uint32_t flushes);
    bool isHeld() const;  // by a pause that came after the write in progress began
    void beginProgramme();
    void forgetCutFrame();
    void writePayload(const uint8_t* data, size_t byteCount);
    void writeFrames(const uint8_t* data, size_t byteCount);

    // The writer's thread alone.
    std::optional<WriteStart> mWrite;  // while write() runs
    bool mIsInCallback = false;
    bool mHasGivenUp = false;                 // this write met a pause that outlasted its second
    std::optional<hw_sync_mode_t> mHeldMode;  // of a header that a pause holds
    hw_sync_mode_t mHwSyncMode = HW_SYNC_MODE_AV_SYNC;
    uint64_t mDropBytes = 0;
    FrameCarry mCarry;
    uint32_t mCarryFlushCount = 0;  // when mCarry was filled
    uint32_t mProgramme = 0;        // the close count that the parser's state goes with

    bool mObserverRegistered GUARDED_BY(mLifecycle) = false;
    const sp<HwSyncBurstParser> mParser;
    const std::unique_ptr<HwSyncPolicy> mPolicy;
    const sp<AVSyncBridgeFactoryHalHidl> mBridgeFactory;
    sp<BridgeHalHidl> mBridge GUARDED_BY(mBridgeLock);
    uint64_t mLatencyMs GUARDED_BY(mLatency) = 0;
    int64_t mLatencyOffsetMs GUARDED_BY(mLatency) = 0;

    Mutex mLifecycle{"lifecycle"};  // open against close
    // Bridge and stream start and pause together, and no header's calls come between.
    Mutex mPlayState{"play state"};
    Mutex mParameters{"parameters"};  // one bridge is made at a time
    // The worker waits for these two when it passes an offset on.
    PriorityMutex mLatency{
        "latency"};  // the pair, and the order in which policy and bridge are told
    mutable PriorityMutex mBridgeLock{"bridge"};  // the pointer, never held during a call
    // Since the last pause; written under mPlayState.
    std::atomic<bool> mIsResumed{false};
    // Of closes that wait for the parser: a write that begins meanwhile would keep it for its second.
    std::atomic<int> mUnregistering{0};
};

}  // namespace android
