#include "tools/streamproxy/Feeder.h"

#include <algorithm>

#include "tools/streamproxy/Interrupt.h"
#include "tools/streamproxy/ToolError.h"

namespace android {

Feeder::Feeder(const Library& library, FeedBoard& board, FrameSource& source,
               const Handover& handover, const Target& target)
    : mLibrary(library),
      mBoard(board),
      mSource(source),
      mHandover(handover),
      mTarget(target),
      mChunk(static_cast<size_t>(handover.writeFrames) * handover.frameBytes()) {}

Feeder::~Feeder() {
    join();
}

void Feeder::join() {
    if (mThread.joinable()) {
        mThread.join();
    }
}

void Feeder::fill(int64_t frameCount) {
    while (mBoard.isRunning() && mBoard.input(mTarget.index).writtenFrames < frameCount) {
        writeSome(frameCount - mBoard.input(mTarget.index).writtenFrames);
        if (mBoard.input(mTarget.index).shortWriteCount > 0) {
            throw ToolError(mTarget.name + ": the stream's buffer takes less than one block of " +
                            std::to_string(frameCount) + " frames");
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
            writeSome(room);
        }
    } catch (const std::exception& error) {
        mBoard.end(FeedBoard::State::FAILED, error.what());
    }
}

void Feeder::writeSome(int64_t maxFrames) {
    int64_t frames = std::min(maxFrames, mHandover.writeFrames);
    if (mHasAudio) {
        const auto audio = mSource.next(mChunk.data(), static_cast<size_t>(frames));
        if (audio == 0 && Interrupt::signalNumber() != 0) {
            // A pipe that a signal cut off. The mix ends with it, and does not go on without it.
            mBoard.end(FeedBoard::State::STOPPED);
            return;
        }
        if (audio == 0) {
            mHasAudio = false;
            mBoard.setAudioEnd(mTarget.index, mSource.silentFrames() + mSource.audioFramesRead());
            std::fill(mChunk.begin(), mChunk.end(), uint8_t{0});
            return;
        }
        frames = static_cast<int64_t>(audio);
    }
    write(frames);
}

void Feeder::write(int64_t frameCount) {
    const size_t frameBytes = mHandover.frameBytes();
    int64_t done = 0;
    while (done < frameCount && mBoard.beginWrite(mTarget.index)) {
        const size_t bytes = static_cast<size_t>(frameCount - done) * frameBytes;
        const int written = mLibrary.writeStream(
            mTarget.stream, mChunk.data() + static_cast<size_t>(done) * frameBytes, bytes);
        const int64_t frames = std::max(written, 0) / static_cast<int64_t>(frameBytes);
        mBoard.endWrite(mTarget.index, frames,
                        frames * static_cast<int64_t>(frameBytes) < static_cast<int64_t>(bytes));
        if (written < 0) {
            throw ToolError(mTarget.name + ": the library refuses the audio (status " +
                            std::to_string(written) + ")");
        }
        done += frames;
    }
}

}  // namespace android
