#include "tools/replay/ReplaySession.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "tools/audio/StreamConfig.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr std::chrono::milliseconds kThreeBlocks{60};

}  // namespace

ReplaySession::ReplaySession(const Library& library, BurstFile& file, SoundCard& card,
                             const std::vector<std::unique_ptr<BesidePlayer>>& besides,
                             SyncTrack& track, const Config& config)
    : mLibrary(library),
      mFile(file),
      mCard(card),
      mBesides(besides),
      mTrack(track),
      mConfig(config),
      mClock(AVSyncClock::forId(config.clockId)),
      mDriver(mClock, config.events, track) {
    mMixConfig.sample_rate = config.writer.format.rateHz;
    mMixConfig.format = formatOf(config.writer.format.bits);
    mMixConfig.channel_mask = STREAMPROXY_CHANNEL_MASK_STEREO;
}

ReplaySession::~ReplaySession() {
    stop(true);
}

void ReplaySession::start() {
    mPipeline = mLibrary.createPipeline();
    if (mPipeline == nullptr) {
        throw ToolError("the library made no pipeline; see its log with --log debug");
    }
    registerOutput();
    createTunnel();
    for (const auto& beside : mBesides) {
        beside->create(mLibrary, mConfig.writer.recorder);
    }
    if (mConfig.driftPpm != 0) {
        ClockEvent drift;
        drift.kind = ClockEvent::Kind::DRIFT;
        drift.driftPpm = mConfig.driftPpm;
        mTrack.addEvent({.timeNs = 0, .text = drift.applyTo(*mClock)});
    }
    mWriter =
        std::make_unique<TunnelWriter>(mLibrary, mTunnel, mFile, mClock, mTrack, mConfig.writer);
    mStartNs = systemTime(SYSTEM_TIME_MONOTONIC);
    mConfig.writer.recorder->start(mStartNs);
    for (const auto& beside : mBesides) {
        beside->start();
    }
    mDriver.start(mStartNs);
    mWriterThread = std::thread([this] { write(); });
}

void ReplaySession::registerOutput() {
    const int status = mLibrary.registerOutput(mPipeline, &mMixConfig, &mCard, &SoundCard::onBlock);
    if (status != 0) {
        throw ToolError(fmt::format(
            "the library refuses an output of {} Hz (status {}); choose another --rate or --format",
            mMixConfig.sample_rate, status));
    }
    mHasOutput = true;
}

void ReplaySession::createTunnel() {
    const PcmFormat& format = mConfig.writer.format;
    audio_proxy_config_t config = mMixConfig;
    config.channel_mask = channelMaskOf(format.channelCount);
    config.flags = STREAMPROXY_FLAG_HW_AV_SYNC;
    mTunnel = mLibrary.createStream(&config);
    if (mTunnel == nullptr) {
        throw ToolError(
            fmt::format("{}: the library makes no tunnel stream of {} Hz, {} channels; see its log "
                        "with --log debug",
                        mFile.path(), format.rateHz, format.channelCount));
    }
    mLibrary.setStreamVolume(mTunnel, mConfig.gain, mConfig.gain);
    mLibrary.setStreamParameters(mTunnel, (fmt::format("hw_av_sync={}", mConfig.clockId)).c_str());
    if (mClock->takeRecords().empty()) {
        throw ToolError(fmt::format(
            "the library did not connect its stream with clock {}; see its log with --log debug",
            mConfig.clockId));
    }
    const int status =
        mLibrary.setDownstreamLatency(mTunnel, mConfig.latencyMs, mConfig.latencyOffsetMs);
    if (status != 0) {
        throw ToolError(fmt::format("the library refuses the latency (status {}); an offset below "
                                    "0 is at most as large as --latency",
                                    status),
                        EXIT_USAGE);
    }
}

void ReplaySession::write() {
    try {
        mWriter->run(mStartNs);
    } catch (const std::exception& error) {
        mFailure = error.what();
    }
    mIsWritten = true;
}

void ReplaySession::stop(bool isCut) {
    if (mWriter != nullptr) {
        mWriter->stop();
    }
    if (mWriterThread.joinable()) {
        mWriterThread.join();
    }
    mDriver.stop();
    if (mTunnel != nullptr && !isCut) {
        const std::chrono::microseconds buffered{mLibrary.getStreamLatency(mTunnel)};
        std::this_thread::sleep_for(buffered + kThreeBlocks);
    }
    // Nothing is heard any more, also not of the streams beside it.
    if (mHasOutput) {
        mLibrary.unregisterOutput(mPipeline, &mCard, &SoundCard::onBlock);
        mHasOutput = false;
    }
    for (const auto& beside : mBesides) {
        beside->stop();
    }
    if (mTunnel != nullptr) {
        // Closing a stream with audio in it would wait for the mixer.
        mLibrary.flushStream(mTunnel);
        mLibrary.destroyStream(mTunnel);
        mTunnel = nullptr;
    }
    if (mPipeline != nullptr) {
        mLibrary.destroyPipeline(mPipeline);
        mPipeline = nullptr;
    }
}

}  // namespace android
