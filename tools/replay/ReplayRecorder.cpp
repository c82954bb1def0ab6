#include "tools/replay/ReplayRecorder.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/audio/Handover.h"

namespace android {

namespace {

// A write stands for a second at most, and a burst waits no longer to be heard.
constexpr size_t kRecentBlocks = 500;
constexpr size_t kMaxPending = 10000;  // bursts in the stream's buffer: never so many
// Blocks and writes come in steps. What is further apart was a pause, or was dropped at once.
constexpr double kJitterSec = 0.1;

}  // namespace

ReplayRecorder::ReplayRecorder(const Config& config, SyncTrack& track)
    : mConfig(config),
      mTrack(track),
      mFrameBytes(int64_t{config.tunnelChannels} * config.bits / 8),
      mClock(AVSyncClock::forId(config.clockId)),
      mMix({.rateHz = config.rateHz, .channelCount = 2, .bits = config.bits}),
      mBlocks(blockFrames(config.rateHz)),
      mTunnel(
          {.rateHz = config.rateHz, .channelCount = config.tunnelChannels, .bits = config.bits}),
      mHeard(config.limit) {}

void ReplayRecorder::addAt(Envelope& audio, double timeSec, uint32_t rateHz, const void* frames,
                           int64_t frameCount) {
    const double expectedSec = static_cast<double>(audio.nextFrame()) / rateHz;
    if (std::abs(timeSec - expectedSec) > kJitterSec) {
        audio.seek(static_cast<int64_t>(timeSec * rateHz));
    }
    audio.add(frames, frameCount);
}

void ReplayRecorder::beginBlock(const void* frames, int64_t frameCount) {
    const double timeSec = nowSec();
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mRecentBlocks.push_back({.firstFrame = mMixedFrames - std::max<int64_t>(mFramesBefore, 0),
                                 .frameCount = frameCount,
                                 .timeSec = timeSec,
                                 .clockNs = mClock->positionNs()});
        if (mRecentBlocks.size() > kRecentBlocks) {
            mRecentBlocks.pop_front();
        }
        mMixedFrames += frameCount;
    }
    mBlocks.begin(timeSec, frameCount);
    if (mConfig.keepsAudio) {
        addAt(mMix, timeSec, mConfig.rateHz, frames, frameCount);
    }
}

void ReplayRecorder::beginWrite() {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mFramesBefore < 0) {
        mFramesBefore = mMixedFrames;
    }
}

void ReplayRecorder::noteWrite(const Written& written) {
    if (written.burst != nullptr) {
        noteBurst(written);
    }
    for (const TunnelLog::Line& line : written.lines) {
        switch (line.kind) {
            case TunnelLog::Line::Kind::SILENCE:
                mPlayedBytes += line.byteCount;
                break;
            case TunnelLog::Line::Kind::DROPPED:
            case TunnelLog::Line::Kind::MISSED:
                mPlayedBytes -= line.byteCount;
                break;
            case TunnelLog::Line::Kind::DROP:
                break;
        }
    }
    notePayload(written);
    resolve();
}

void ReplayRecorder::noteBurst(const Written& written) {
    mBurst = *written.burst;
    // Silence goes in front of the burst. Of one that is dropped the beginning is not heard.
    int64_t beginBytes = mPlayedBytes;
    bool isHeard = mBurst.mode == HW_SYNC_MODE_AV_SYNC;
    for (const TunnelLog::Line& line : written.lines) {
        beginBytes += line.kind == TunnelLog::Line::Kind::SILENCE ? line.byteCount : 0;
        isHeard = isHeard && line.kind != TunnelLog::Line::Kind::DROPPED &&
                  line.kind != TunnelLog::Line::Kind::MISSED;
    }
    mPlayedBytes += mBurst.usedPayloadByteCount();
    if (isHeard) {
        mPending.push_back({.burstIndex = mBurst.index,
                            .ptsNs = mBurst.ptsNs,
                            .frame = beginBytes / mFrameBytes,
                            .frameCount = mBurst.usedPayloadByteCount() / mFrameBytes});
        if (mPending.size() > kMaxPending) {
            mPending.pop_front();
        }
    } else if (mBurst.mode != HW_SYNC_MODE_AV_SYNC && mPending.empty()) {
        mHeard.interrupt(nowSec());
    }
}

/** Of the payload, whole frames: for the eye. */
void ReplayRecorder::notePayload(const Written& written) {
    const uint64_t payloadEnd = mBurst.headerEnd() + mBurst.usedPayloadByteCount();
    const uint64_t begin = std::max(written.offset, mBurst.headerEnd());
    const uint64_t end = std::min(written.offset + written.byteCount, payloadEnd);
    if (!mConfig.keepsAudio || mBurst.headerByteCount == 0 || begin >= end) {
        return;
    }
    const uint8_t* bytes = written.bytes + (begin - written.offset);
    mAligned.assign(bytes, bytes + (end - begin));
    addAt(mTunnel, nowSec(), mConfig.rateHz, mAligned.data(),
          static_cast<int64_t>(mAligned.size()) / mFrameBytes);
}

void ReplayRecorder::resolve() {
    const std::lock_guard<std::mutex> lock(mLock);
    while (!mPending.empty()) {
        const Pending& burst = mPending.front();
        const auto block =
            std::find_if(mRecentBlocks.begin(), mRecentBlocks.end(), [&](const Block& candidate) {
                return candidate.firstFrame + candidate.frameCount > burst.frame;
            });
        if (block == mRecentBlocks.end()) {
            return;
        }
        if (block->firstFrame <= burst.frame) {
            const double intoBlockSec =
                static_cast<double>(burst.frame - block->firstFrame) / mConfig.rateHz;
            const double leadMs =
                static_cast<double>(static_cast<int64_t>(burst.ptsNs - block->clockNs)) / 1e6;
            const HeardLeads::Burst heard = {
                .index = burst.burstIndex,
                .timeSec = block->timeSec + intoBlockSec,
                .leadMs = leadMs - intoBlockSec * 1000,
                .durationSec = static_cast<double>(burst.frameCount) / mConfig.rateHz};
            mHeard.add(heard);
            mTrack.addHeard(heard.index, std::llround(heard.leadMs * 1e6));
        }
        mPending.pop_front();
    }
}

InputTrack* ReplayRecorder::addBeside(Beside beside) {
    mBesides.push_back(std::move(beside));
    return mBesides.back().track.get();
}

}  // namespace android
