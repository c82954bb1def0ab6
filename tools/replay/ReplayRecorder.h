#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "avsync/AVSyncClock.h"
#include "tools/burst/Burst.h"
#include "tools/course/BlockTrack.h"
#include "tools/course/Course.h"
#include "tools/course/Envelope.h"
#include "tools/course/HeardLeads.h"
#include "tools/course/InputTrack.h"
#include "tools/course/SyncTrack.h"
#include "tools/replay/TunnelLog.h"

namespace android {

/**
 * Writes down the course of a replay for its report, in bounded memory. Times count from the first
 * write, as those of the decisions do.
 *
 * The lead at the output is measured, not computed from the one at the parser: payload, silence and
 * drops tell which frame of the tunnel stream a burst begins with. The stream is the first of the mix
 * and has its rate, so the mix counts its frames alike. The block that holds the frame has the time
 * and the clock's position.
 * Threads: beginBlock() and endBlock() on the mixer's, noteWrite() on the writer's, a plain stream's
 *          track on its feeder's. Read it when all have ended.
 */
class ReplayRecorder {
public:
    struct Config {
        uint32_t rateHz;
        uint32_t bits;
        uint32_t tunnelChannels;
        uint32_t clockId;
        float tunnelGain;
        bool keepsAudio;                                // waveforms, for a page
        std::optional<LeadRange> limit = std::nullopt;  // of the heard lead
    };

    /** The track learns what was heard. */
    ReplayRecorder(const Config& config, SyncTrack& track);

    void start(nsecs_t startNs) { mStartNs = startNs; }

    void beginBlock(const void* frames, int64_t frameCount);
    void endBlock() { mBlocks.end(); }

    /** A piece of the burst stream as it was written. */
    struct Written {
        const uint8_t* bytes;
        size_t byteCount;
        uint64_t offset;     // of the stream
        const Burst* burst;  // whose header it completed; null: none
        const std::vector<TunnelLog::Line>& lines;
    };
    /** In front of each write: with the first one the tunnel stream joins the mix. */
    void beginWrite();
    void noteWrite(const Written& written);

    /** Nothing is written or mixed any more: what is still in the stream was heard, or is not. */
    void finish() { resolve(); }

    /** A plain stream. */
    struct Beside {
        std::string path;
        double startSec;  // silence in front
        double rampSec;
        uint32_t rateHz;
        std::unique_ptr<InputTrack> track;
    };
    /** What it returns lives as long as the recorder. */
    InputTrack* addBeside(Beside beside);

    double nowSec() const {
        return static_cast<double>(systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs) / 1e9;
    }
    const Envelope& mix() const { return mMix; }
    const Envelope& tunnel() const { return mTunnel; }
    const BlockTrack& blocks() const { return mBlocks; }
    /** Of every burst that was heard from its first frame on. */
    const HeardLeads& heard() const { return mHeard; }
    float tunnelGain() const { return mConfig.tunnelGain; }
    const std::vector<Beside>& besides() const { return mBesides; }

private:
    struct Block {
        int64_t firstFrame;
        int64_t frameCount;
        double timeSec;
        uint64_t clockNs;
    };
    struct Pending {
        uint64_t burstIndex;
        uint64_t ptsNs;
        int64_t frame;
        int64_t frameCount;
    };

    static void addAt(Envelope& audio, double timeSec, uint32_t rateHz, const void* frames,
                      int64_t frameCount);
    void noteBurst(const Written& written);
    void notePayload(const Written& written);
    void resolve();

    const Config mConfig;
    SyncTrack& mTrack;
    const int64_t mFrameBytes;  // of the tunnel stream
    const sp<AVSyncClock> mClock;
    nsecs_t mStartNs = 0;
    // The mixer's.
    Envelope mMix;
    BlockTrack mBlocks;
    // The writer's.
    Envelope mTunnel;
    Burst mBurst;              // the last one whose header was written
    int64_t mPlayedBytes = 0;  // into the stream, silence counted, drops not
    std::vector<uint8_t> mAligned;
    std::deque<Pending> mPending;
    HeardLeads mHeard;
    std::vector<Beside> mBesides;
    std::mutex mLock;
    std::deque<Block> mRecentBlocks;  // all below under mLock
    int64_t mMixedFrames = 0;
    int64_t mFramesBefore = -1;  // of them, mixed before the tunnel stream's first write
};

}  // namespace android
