#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace android {

/**
 * Where the mix and the inputs' feeders wait for each other.
 *
 * The mix demands of each input a number of frames written in all. A feeder writes ahead as far as
 * the stream's buffer lets it while it has audio, and exactly what is demanded once it has to pad.
 * So when every demand is met, a padding feeder is not inside a write, and its stream can be paused
 * without a late write that would open it again.
 * Threads: any. One lock, never held during a call into the library.
 */
class FeedBoard {
public:
    struct Input {
        int64_t demandFrames = 0;
        int64_t writtenFrames = 0;
        int64_t shortWriteCount = 0;
        std::chrono::steady_clock::time_point lastWriteTime{};  // its end
        int64_t audioEndFrame = -1;  // silence in front and audio, once the feeder knows
        bool isWriting = false;
        bool isPaused = false;  // no further demand is made
    };
    enum class State { RUNNING, FINISHED, FAILED, STOPPED };

    explicit FeedBoard(size_t inputCount) : mInputs(inputCount) {}

    // Feeder of input `index`.
    /** False: the mix has ended, or the input in it; write no more. */
    bool beginWrite(size_t index);
    void endWrite(size_t index, int64_t frameCount, bool isShort);
    void setAudioEnd(size_t index, int64_t frame);
    /** Frames demanded beyond those written, waiting for the first; 0: write no more. */
    int64_t waitForDemand(size_t index);

    // The mix.
    void demand(size_t index, int64_t frameCount);
    /** No more demands; false: the feeder is inside a write, and nothing has changed. */
    bool setPaused(size_t index);
    /** Whether all demands are met; waits for it up to `patience`, or until the mix ends. */
    bool waitUntilFed(std::chrono::milliseconds patience);
    /** Whether no feeder is inside a write; waits for it up to `patience`. */
    bool waitUntilIdle(std::chrono::milliseconds patience);
    /** Waits until `time`, or until the mix ends. */
    void waitUntil(std::chrono::steady_clock::time_point time);

    // The one who started it all.
    /** Waits up to `patience` for the end of the mix. */
    State waitForEnd(std::chrono::milliseconds patience);
    std::string failure() const;
    /** Demands so many frames beyond those written, if the feeder pads. */
    void demandMore(size_t index, int64_t frameCount);

    // Anyone. The first end counts.
    void end(State state, const std::string& failure = {});
    bool isRunning() const;
    bool isFed() const;
    Input input(size_t index) const;

private:
    bool isFed_l() const;

    mutable std::mutex mLock;
    std::condition_variable mWritten;   // a feeder wrote; the mix waits
    std::condition_variable mDemanded;  // the mix asked for more; feeders wait
    std::condition_variable mEnded;
    std::vector<Input> mInputs;  // all below under mLock
    State mState = State::RUNNING;
    std::string mFailure;
};

}  // namespace android
