#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <vector>

#include "tools/host/Library.h"
#include "tools/mix/BlockLoss.h"
#include "tools/mix/FeedBoard.h"
#include "tools/mix/Feeder.h"
#include "tools/mix/Lateness.h"
#include "tools/mix/MixInput.h"
#include "tools/mix/MixOutput.h"
#include "tools/mix/MixRecorder.h"
#include "tools/mix/SumCheck.h"

namespace android {

/**
 * What the host does with each block that the library delivers: writes it, applies the gain
 * changes that are due, pauses the inputs that are over, and holds the library back until every
 * other input has the next block written.
 *
 * The mix takes the shortest input's frames and an open stream without data silences all, so the
 * mixer must never get to a cycle for which something is missing.
 * Threads: start() and feed() by the owner, before the first block; onBlock() by the mixer thread; the
 *          rest by any.
 */
class MixCycle {
public:
    struct Config {
        uint32_t rateHz;
        uint32_t bits;
        bool isRealTime;
        int64_t preRollFrames;  // mixed in front and not written: gains reach their start values
        MixRecorder* recorder = nullptr;  // for the report
        SumCheck* sums = nullptr;         // of a 16-bit mix
        Overload* overload = nullptr;     // of a 32-bit mix
    };

    MixCycle(const Library& library, FeedBoard& board, std::vector<MixInput*> inputs,
             MixOutput& output, const Config& config);

    /** Sets the gains at the start and demands the first block. */
    void start();
    /** The mixer thread is to feed input `index` between two blocks: no other has to be woken for a
     *  block. */
    void feed(size_t index, Feeder& feeder) { mVoices[index].feeder = &feeder; }
    /** The output callback; the cookie is this object. */
    static int onBlock(void* cookie, void* buffer, size_t byteCount);
    /** For want of a block: what a staged input has taken is an estimate, and if it is too low the
     *  demand is, so that no block comes which would raise it. Lets those pad one block more. */
    void demandMore();

    int64_t mixedFrames() const { return mMixedFrames.load(std::memory_order_relaxed); }
    /** Every block so far; the others' counts leave out what is heard nowhere. */
    int64_t deliveredCount() const { return mDeliveredCount.load(std::memory_order_relaxed); }
    int64_t blockCount() const { return mBlockCount.load(std::memory_order_relaxed); }
    int64_t shortBlockCount() const { return mShortBlockCount.load(std::memory_order_relaxed); }
    /** When no more is mixed: short blocks that input `index` made so. */
    int64_t shortenedCount(size_t index) const { return mLoss.shortenedCount(index); }
    /** When no more is mixed: at most this many frames of input `index`'s audio were taken in short
     *  blocks and not mixed. */
    int64_t maxLostFrames(size_t index) const;
    /** When no more is mixed: how the mix waited for input `index`. */
    const Lateness& lateness(size_t index) const { return mVoices[index].lateness; }
    /** When no more is mixed: frames of input `index`'s audio that the blocks hold, at least. */
    int64_t heardFrames(size_t index) const;
    /** How full the buffer of input `index` is, 0 to 1, as far as can be told from outside. */
    double bufferFill(size_t index) const;

private:
    struct Voice {
        MixInput* input = nullptr;
        Feeder* feeder = nullptr;  // null: it has a thread of its own
        size_t nextGainChange = 0;
        int64_t pulledFrames = 0;  // of a staged input: what its first stage has taken, at most
        std::atomic<int64_t> endFrame{-1};  // of the mix, where it was paused
        Lateness lateness;
    };

    void deliver(const void* buffer, int64_t frameCount);
    void countShortBlock(int64_t frameCount);
    void noteLate(size_t index, std::chrono::nanoseconds wait);
    std::vector<size_t> unfedInputs() const;
    void write(const void* buffer, int64_t frameCount, int64_t blockStart);
    void checkLevels(const SumCheck::Block& block);
    void applyGains(Voice& voice);
    void setGain(const Voice& voice, float gain);
    InputTrack* trackOf(const Voice& voice) const;
    bool pauseIfOver(size_t index);
    bool pause(size_t index);
    void pauseAll();
    int64_t nextDemand(Voice& voice) const;
    void feedInputs();
    void recordFills();
    void waitForInputs();
    void waitUntilFed();
    void pace();

    const Library& mLibrary;
    FeedBoard& mBoard;
    MixOutput& mOutput;
    const Config mConfig;
    const int64_t mBlockFrames;
    std::vector<Voice> mVoices;
    BlockLoss mLoss;
    std::chrono::steady_clock::time_point mStartTime{};
    std::atomic<int64_t> mMixedFrames{0};  // pre-roll included; the mixer thread alone writes
    std::atomic<int64_t> mDeliveredCount{0};
    std::atomic<int64_t> mBlockCount{0};
    std::atomic<int64_t> mShortBlockCount{0};
};

}  // namespace android
