#pragma once

#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "avsync/AVSyncClock.h"
#include "tools/host/Library.h"
#include "tools/replay/BesidePlayer.h"
#include "tools/replay/ClockDriver.h"
#include "tools/replay/SoundCard.h"
#include "tools/replay/TunnelWriter.h"

namespace android {

/**
 * One replay from the library's side: pipeline, output, the tunnel stream with its clock, and the
 * plain streams beside it.
 *
 * The tunnel stream is the first of the mix: what stands behind it is asked for no more frames than
 * it gave, and loses nothing when it runs dry at the end.
 * Threads: one (the owner); the writers, the clock's driver and the mixer thread work inside.
 */
class ReplaySession {
public:
    struct Config {
        TunnelWriter::Config writer;
        uint32_t clockId = 1;
        unsigned long latencyMs = 0;
        long latencyOffsetMs = 0;
        double driftPpm = 0;
        float gain = 1.0f;  // of the tunnel stream
        std::vector<ClockEvent> events;
    };

    ReplaySession(const Library& library, BurstFile& file, SoundCard& card,
                  const std::vector<std::unique_ptr<BesidePlayer>>& besides, SyncTrack& track,
                  const Config& config);
    /** Ends the replay if it runs, and gives everything back to the library. */
    ~ReplaySession();
    ReplaySession(const ReplaySession&) = delete;
    ReplaySession& operator=(const ReplaySession&) = delete;

    /** Throws ToolError. */
    void start();
    bool isRunning() const { return !mIsWritten.load(); }
    /** Stops writing, lets the mixer play what is written unless that is cut, and cleans up. */
    void stop(bool isCut);

    /** Since the first write. */
    int64_t elapsedNs() const { return systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs; }
    uint64_t writtenByteCount() const { return mWriter != nullptr ? mWriter->byteCount() : 0; }
    const TunnelWriter& writer() const { return *mWriter; }
    /** Why writing ended early; empty if it did not. Behind stop(). */
    const std::string& failure() const { return mFailure; }

private:
    void registerOutput();
    void createTunnel();
    void write();

    const Library& mLibrary;
    BurstFile& mFile;
    SoundCard& mCard;
    const std::vector<std::unique_ptr<BesidePlayer>>& mBesides;
    SyncTrack& mTrack;
    const Config mConfig;
    const sp<AVSyncClock> mClock;
    ClockDriver mDriver;
    audio_proxy_config_t mMixConfig{};
    audio_proxy_pipeline_t* mPipeline = nullptr;
    audio_proxy_stream_t* mTunnel = nullptr;
    std::unique_ptr<TunnelWriter> mWriter;
    std::thread mWriterThread;
    nsecs_t mStartNs = 0;
    std::atomic<bool> mIsWritten{false};
    std::string mFailure;  // the writer's until it has ended
    bool mHasOutput = false;
};

}  // namespace android
