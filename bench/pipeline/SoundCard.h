#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

/**
 * The device behind an output. It always plays at its rate, from a buffer that play() fills. When
 * the buffer runs dry it plays silence until the next block.
 *
 * Threads: the worker calls play(), any thread the rest. They share no lock: the worker never waits
 * for a reader.
 */
class SoundCard {
public:
    using Clock = std::chrono::steady_clock;

    struct Silence {
        double totalMs;
        double longestMs;  // without a pause in between
    };

    SoundCard(uint32_t sampleRate, Clock::duration bufferLength);

    /** Buffers a block, then sleeps until the buffer is no longer above its length. */
    void play(size_t frameCount);

    /** Counts silence from here on. */
    void begin();
    /** Since begin(), and including silence that still lasts. */
    Silence silence() const;

private:
    /** How long it had been silent for at `now`, since begin(). */
    Clock::duration silentFor(Clock::time_point now) const;

    const uint32_t mSampleRate;  // Hz
    const Clock::duration mBufferLength;
    std::atomic<Clock::time_point> mDry;  // when the buffer will have been played
    std::atomic<Clock::time_point> mBegin{Clock::time_point::min()};
    std::atomic<Clock::duration> mTotal{Clock::duration::zero()};
    std::atomic<Clock::duration> mLongest{Clock::duration::zero()};
};
