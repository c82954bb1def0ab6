#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "tools/audio/AudioWriter.h"
#include "tools/replay/ReplayRecorder.h"

namespace android {

/**
 * An output that takes its blocks at the pace of a sound card: each is due when the former ones
 * have been played, counted from the first. Deadlines are absolute, so no delay adds up. A mix that
 * comes later than the card could wait is an underrun, and the count starts anew.
 * Threads: onBlock() on the mixer's; the counts on any.
 */
class SoundCard {
public:
    /** `writer` may be null: the mix is heard by nobody. */
    SoundCard(uint32_t rateHz, uint32_t bits, AudioWriter* writer, ReplayRecorder& recorder);

    /** The output callback; the cookie is this object. */
    static int onBlock(void* cookie, void* buffer, size_t byteCount);

    int64_t frameCount() const { return mFrameCount.load(std::memory_order_relaxed); }
    int64_t shortBlockCount() const { return mShortBlockCount.load(std::memory_order_relaxed); }
    int64_t underrunCount() const { return mUnderrunCount.load(std::memory_order_relaxed); }
    /** How late the latest block came, beyond what the card could wait. */
    int64_t longestUnderrunNs() const { return mLongestUnderrunNs.load(std::memory_order_relaxed); }
    /** Why writing failed; empty if it did not. */
    std::string failure() const;

private:
    void play(const void* buffer, int64_t frameCount);
    void write(const void* buffer, int64_t frameCount);
    void pace(int64_t frameCount);

    const uint32_t mRateHz;
    const int64_t mFrameBytes;
    const int64_t mBlockFrames;
    AudioWriter* const mWriter;
    ReplayRecorder& mRecorder;
    // The mixer thread's.
    std::chrono::steady_clock::time_point mStart{};
    int64_t mPlayedFrames = 0;  // since mStart
    // The mixer thread writes, any reads.
    std::atomic<int64_t> mFrameCount{0};
    std::atomic<int64_t> mShortBlockCount{0};
    std::atomic<int64_t> mUnderrunCount{0};
    std::atomic<int64_t> mLongestUnderrunNs{0};
    mutable std::mutex mLock;
    std::string mFailure;  // under mLock
};

}  // namespace android
