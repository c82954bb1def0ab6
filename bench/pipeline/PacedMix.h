#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/support/Distribution.h"
#include "interface/streamproxy.h"

/**
 * A host whose output's callback sleeps until the next step of a clock, as with a sound card, so
 * that the worker's lock is held nearly all of the time. The callback writes to the streams too.
 * Eight streams are converted from 44.1 to 48 kHz; a ninth, a tunnel stream, stays closed.
 */
class PacedMix {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kPace{4};

    /** `isPlaying` false: nothing is written, and the worker sleeps. */
    explicit PacedMix(bool isPlaying);
    ~PacedMix();
    PacedMix(const PacedMix&) = delete;
    PacedMix& operator=(const PacedMix&) = delete;

    audio_proxy_pipeline_t* pipeline() { return mPipeline; }
    audio_proxy_stream_t* tunnel() { return mTunnel; }
    audio_proxy_stream_t* stream(size_t index) { return mStreams[index % mStreams.size()]; }

    /** Of callbacks that have begun. */
    uint64_t cycleCount() const { return mCycles.load(std::memory_order_acquire); }
    /** Every block so far was whole. */
    bool isSound() const { return mIsSound.load(std::memory_order_relaxed); }

    /** From here on the worker adds the µs between two callbacks to `work`: its lock, the commands
     *  and the mix; null: nowhere. It does not use the former one any more. */
    void observe(Distribution* work);

private:
    static int onBlock(void* cookie, void* buffer, size_t byteCount);

    void feed(audio_proxy_stream_t* stream);
    void play(size_t byteCount);

    const std::vector<int16_t> mBlock;  // for each stream in a cycle
    audio_proxy_pipeline_t* mPipeline = nullptr;
    audio_proxy_stream_t* mTunnel = nullptr;
    std::vector<audio_proxy_stream_t*> mStreams;
    std::atomic<Distribution*> mObserver{nullptr};
    std::atomic<uint64_t> mCycles{0};
    std::atomic<bool> mIsSound{true};
    Clock::time_point mReturned;  // these two are the worker's
    Clock::time_point mDue = Clock::now();
};
