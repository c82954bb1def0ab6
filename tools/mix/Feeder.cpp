#include "tools/mix/Feeder.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

/** Much at once, unless it would be waited for: a read costs a call into the kernel. */
int64_t chunkFrames(const FrameSource& source, const Handover& handover) {
    const int64_t tenthOfSecond = handover.config.sample_rate / 10;
    return source.mayWait() ? handover.writeFrames : std::max(handover.writeFrames, tenthOfSecond);
}

}  // namespace

Feeder::Feeder(const Library& library, FeedBoard& board, FrameSource& source,
               const Handover& handover, const Target& target)
    : mLibrary(library),
      mBoard(board),
      mSource(source),
      mHandover(handover),
      mTarget(target),
      mChunk(static_cast<size_t>(chunkFrames(source, handover)) * handover.frameBytes()) {}

Feeder::~Feeder() {
    join();
}

void Feeder::join() {
    if (mThread.joinable()) {
        mThread.join();
    }
}

void Feeder::fill(int64_t frameCount) {
    while (mWrittenFrames < frameCount) {
        // Nothing is written at the end of the audio too, where silence follows.
        const int64_t frames = std::min(frameCount - mWrittenFrames, mHandover.fillFrames);
        if (writeSome(frames) == 0 && !mBoard.isRunning()) {
            return;
        }
        if (mHasWrittenShort) {
            throw ToolError(
                fmt::format("{}: the stream's buffer takes less than one block of {} frames",
                            mTarget.name, frameCount));
        }
    }
}

void Feeder::start() {
    mThread = std::thread([this] { run(); });
}

void Feeder::run() {
    try {
        while (mBoard.isRunning()) {
            const int64_t room =
                mHasAudio ? mHandover.writeFrames : mBoard.waitForDemand(mTarget.index);
            if (room == 0) {
                return;
            }
            writeSome(std::min(room, mHandover.writeFrames));
        }
    } catch (const std::exception& error) {
        mBoard.end(FeedBoard::State::FAILED, error.what());
    }
}

int64_t Feeder::writeSome(int64_t maxFrames) {
    if (mHasAudio && mFramesUsed == mChunkFrames && !decode()) {
        return 0;
    }
    if (!mHasAudio) {
        const auto silentFrames = static_cast<int64_t>(mChunk.size() / mHandover.frameBytes());
        const int64_t padFrames = std::min(maxFrames, silentFrames);
        if (mTarget.sum != nullptr) {
            mTarget.sum->handOver(mChunk.data(), padFrames);
        }
        return write(mChunk.data(), padFrames);
    }
    const int64_t frames = std::min(maxFrames, mChunkFrames - mFramesUsed);
    const uint8_t* audio =
        mChunk.data() + static_cast<size_t>(mFramesUsed) * mHandover.frameBytes();
    mFramesUsed += frames;
    if (mTarget.track != nullptr) {
        mTarget.track->handOver(audio, frames);
    }
    if (mTarget.sum != nullptr) {
        mTarget.sum->handOver(audio, frames);
    }
    return write(audio, frames);
}

bool Feeder::decode() {
    mFramesUsed = 0;
    mChunkFrames =
        static_cast<int64_t>(mSource.next(mChunk.data(), mChunk.size() / mHandover.frameBytes()));
    if (mChunkFrames > 0) {
        return true;
    }
    if (Interrupt::signalNumber() != 0) {
        // A pipe that a signal cut off. The mix ends with it, and does not go on without it.
        mBoard.end(FeedBoard::State::STOPPED);
        return false;
    }
    mHasAudio = false;
    mBoard.setAudioEnd(mTarget.index, mSource.silentFrames() + mSource.audioFramesRead());
    std::fill(mChunk.begin(), mChunk.end(), uint8_t{0});
    return false;
}

int64_t Feeder::write(const uint8_t* audio, int64_t frameCount) {
    const size_t frameBytes = mHandover.frameBytes();
    int64_t done = 0;
    while (done < frameCount && mBoard.beginWrite(mTarget.index)) {
        const size_t bytes = static_cast<size_t>(frameCount - done) * frameBytes;
        int written = 0;
        {
            const InputTrack::Write span(mTarget.track);
            written = mLibrary.writeStream(mTarget.stream,
                                           audio + static_cast<size_t>(done) * frameBytes, bytes);
        }
        const int64_t frames = std::max(written, 0) / static_cast<int64_t>(frameBytes);
        const bool isShort = frames < frameCount - done;
        mBoard.endWrite(mTarget.index, frames, isShort);
        if (written < 0) {
            throw ToolError(fmt::format("{}: the library refuses the audio (status {})",
                                        mTarget.name, written));
        }
        mHasWrittenShort = mHasWrittenShort || isShort;
        mWrittenFrames += frames;
        done += frames;
    }
    return done;
}

}  // namespace android
