#include "tools/replay/BesidePlayer.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tools/audio/OpenInput.h"
#include "tools/host/Properties.h"
#include "tools/process/ToolError.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

FrameSource::Extent extentOf(const InputSpec& spec, double rateHz) {
    return {.silentFrames = std::llround(spec.startSec * rateHz),
            .loopCount = std::max<int64_t>(spec.loopCount, 1),
            .maxFrames = spec.lengthSec < 0 ? -1 : std::llround(spec.lengthSec * rateHz)};
}

}  // namespace

BesidePlayer::BesidePlayer(const InputSpec& spec, uint32_t mixRateHz)
    : mSpec(spec),
      mReader(openInput(spec, false, PipeUse::KEPT)),
      mHandover({.rateHz = mReader->rateHz(),
                 .channelCount = mReader->channelCount(),
                 .fits16Bits = mReader->fits16Bits()},
                mixRateHz,
                {.isNative = false, .bufferFrames = bufferFramesProperty(), .writeFrames = 0}),
      mSource(*mReader, mHandover, extentOf(spec, mReader->rateHz())),
      mChunk(static_cast<size_t>(mHandover.writeFrames) * mHandover.frameBytes()) {}

BesidePlayer::~BesidePlayer() {
    stop();
}

void BesidePlayer::create(const Library& library, ReplayRecorder* recorder) {
    const int64_t formerFrames = bufferFramesProperty();
    setProperty(kBufferFramesProperty, std::to_string(mHandover.bufferFrames));
    mStream = library.createStream(&mHandover.config);
    setProperty(kBufferFramesProperty, std::to_string(formerFrames));
    if (mStream == nullptr) {
        throw ToolError(mSpec.path + ": the library makes no stream of " + mReader->describe() +
                        "; see its log with --log debug");
    }
    mLibrary = &library;
    if (recorder != nullptr) {
        mRecorder = recorder;
        mTrack = recorder->addBeside(
            {.path = mSpec.path,
             .startSec = mSpec.startSec,
             .rampSec = static_cast<double>(mHandover.bufferFrames) / mHandover.mixRateHz,
             .rateHz = mHandover.config.sample_rate,
             .track = std::make_unique<InputTrack>(
                 Envelope::Format{.rateHz = mHandover.config.sample_rate,
                                  .channelCount = mHandover.channelCount,
                                  .bits = mHandover.sampleBytes() * 8})});
    }
    setGain(mSpec.gain, 0.0);
}

void BesidePlayer::start() {
    mThread = std::thread([this] { run(); });
}

void BesidePlayer::run() {
    int64_t writtenFrames = 0;
    try {
        while (!mIsStopped.load(std::memory_order_relaxed)) {
            applyGains(writtenFrames);
            const size_t byteCount = next();
            const int status = mLibrary->writeStream(mStream, mChunk.data(), byteCount);
            if (status < 0) {
                throw ToolError(fmt::format("{}: the library refuses the audio (status {})",
                                            mSpec.path, status));
            }
            writtenFrames += static_cast<int64_t>(byteCount / mHandover.frameBytes());
        }
    } catch (const std::exception& error) {
        // The replay itself is sound without it.
        printTo(stderr, "streamproxy: {}\n", terminalText(error.what()));
        mLibrary->pauseStream(mStream);
    }
}

size_t BesidePlayer::next() {
    const size_t frameBytes = mHandover.frameBytes();
    size_t frameCount =
        mHasAudio ? mSource.next(mChunk.data(), mChunk.size() / frameBytes) : size_t{0};
    if (frameCount > 0 && mTrack != nullptr) {
        mTrack->handOver(mChunk.data(), static_cast<int64_t>(frameCount));
    }
    if (frameCount == 0) {
        mHasAudio = false;
        std::fill(mChunk.begin(), mChunk.end(), uint8_t{0});
        frameCount = mChunk.size() / frameBytes;
    }
    return frameCount * frameBytes;
}

void BesidePlayer::applyGains(int64_t writtenFrames) {
    const double nowSec =
        static_cast<double>(writtenFrames) / static_cast<double>(mHandover.config.sample_rate);
    const auto& changes = mSpec.gainChanges;
    for (; mNextGainChange < changes.size() && changes[mNextGainChange].timeSec <= nowSec;
         ++mNextGainChange) {
        setGain(changes[mNextGainChange].gain, mRecorder != nullptr ? mRecorder->nowSec() : 0.0);
    }
}

void BesidePlayer::setGain(float gain, double timeSec) {
    const float left = mSpec.leftGain(gain);
    const float right = mSpec.rightGain(gain);
    mLibrary->setStreamVolume(mStream, left, right);
    if (mTrack != nullptr) {
        mTrack->addGain({.timeSec = timeSec, .left = left, .right = right});
    }
}

void BesidePlayer::stop() {
    mIsStopped.store(true, std::memory_order_relaxed);
    if (mStream != nullptr) {
        mLibrary->flushStream(mStream);  // a write under way finds room
    }
    if (mThread.joinable()) {
        mThread.join();
    }
    if (mStream != nullptr) {
        mLibrary->flushStream(mStream);
        mLibrary->destroyStream(mStream);
        mStream = nullptr;
    }
}

}  // namespace android
