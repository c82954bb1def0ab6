#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "avsync/AVSyncClock.h"
#include "tools/audio/PcmFormat.h"
#include "tools/burst/BurstFile.h"
#include "tools/burst/BurstScanner.h"
#include "tools/burst/BurstTally.h"
#include "tools/course/StreamFaults.h"
#include "tools/course/SyncTrack.h"
#include "tools/host/Library.h"
#include "tools/replay/ReplayRecorder.h"
#include "tools/replay/TunnelLog.h"

namespace android {

/**
 * Writes a burst stream into a tunnel stream as fast as it is taken, and notes every decision.
 *
 * How a decision becomes known: the tool's own parser says where the headers lie, and the file is
 * written so that no write completes more than one. What the clock's record gained when the write
 * returns is then that burst's: the position that was asked for, and a re-anchor if one followed.
 * Silence and drops are told apart by the library's messages. Positions and times come from the
 * record, not from asking the clock again, so no other thread's doing can falsify them.
 * Threads: run() on the writer's own; stop() on any.
 */
class TunnelWriter : private BurstSink {
public:
    struct Config {
        PcmFormat format;
        int64_t offsetNs = 0;                // the clock's, applied behind the first anchor
        int64_t maxNs = 0;                   // end after this time; 0: at the end of the file
        int64_t toleranceNs = 1'000'000;     // of a timestamp's step
        ReplayRecorder* recorder = nullptr;  // never null when it is used
    };

    TunnelWriter(const Library& library, audio_proxy_stream_t* stream, BurstFile& file,
                 const sp<AVSyncClock>& clock, SyncTrack& track, const Config& config);

    /** Returns when all is written; `startNs` is now, on the monotonic clock. Throws ToolError. */
    void run(nsecs_t startNs);
    /** run() returns behind the write under way. */
    void stop() { mIsStopped.store(true, std::memory_order_relaxed); }

    uint64_t byteCount() const { return mByteCount.load(std::memory_order_relaxed); }
    /** Of what was written; read them when run() has returned. */
    const BurstTally& tally() const { return mTally; }
    const StreamFaults& faults() const { return mFaults; }
    /** What to ask when the format seems not to be the payload's, after the first bursts; null until
     *  then. Any thread. */
    const std::string* formatDoubt() const {
        return mIsFormatDoubtful.load(std::memory_order_acquire) ? &mFormatDoubt : nullptr;
    }

private:
    void onGarbage(uint64_t offset, uint64_t byteCount) override {
        mGarbage.push_back({.offset = offset, .byteCount = byteCount});
    }
    void onBurst(const Burst& burst) override { mPending.push_back(burst); }

    /** A run of bytes that belongs to no burst. */
    struct Garbage {
        uint64_t offset;
        uint64_t byteCount;
    };

    bool isOver() const;
    /** The bytes of the next write, of `byteCount` at `offset` of the file. */
    size_t pieceOf(size_t byteCount, uint64_t offset) const;
    void writePiece(const uint8_t* bytes, size_t byteCount, TunnelLog& log);
    SyncDecision decisionOf(const Burst& burst, nsecs_t beginNs);
    void note(const Burst& burst, nsecs_t beginNs, const std::vector<TunnelLog::Line>& lines);
    void applyOffset();
    /** Throws ToolError if the library corrected what the log has no known line for: the report would
     *  count it as nothing. */
    void checkLogged(const SyncDecision& decision) const;
    /** The same when all is written. */
    void checkDropped() const;
    void judge(const Burst& burst, double timeSec);
    void judgeGarbage(uint64_t endOffset, double timeSec);
    void judgeFormat();
    void judgeEnd();
    double nowSec() const {
        return static_cast<double>(systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs) / 1e9;
    }

    const Library& mLibrary;
    audio_proxy_stream_t* const mStream;
    BurstFile& mFile;
    const sp<AVSyncClock> mClock;
    SyncTrack& mTrack;
    const Config mConfig;
    const SyncBounds mBounds = SyncBounds::fromProperties();
    BurstScanner mScanner;
    std::deque<Burst> mPending;    // found in the file and not written yet
    std::deque<Garbage> mGarbage;  // likewise
    BurstTally mTally;             // of what was written
    StreamFaults mFaults;          // likewise
    std::string mFormatDoubt;      // never changed once the next member is set
    std::atomic<bool> mIsFormatDoubtful{false};
    nsecs_t mStartNs = 0;
    uint64_t mToDropByteCount = 0;  // payload of the bursts that the library decided to drop
    bool mIsStarting = false;  // the next anchor is a start: whatever the clock says counts nothing
    bool mIsOffsetDue;
    std::atomic<uint64_t> mByteCount{0};
    std::atomic<bool> mIsStopped{false};
};

}  // namespace android
