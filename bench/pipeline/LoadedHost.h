#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/pipeline/SoundCard.h"
#include "interface/streamproxy.h"

/** The system refuses a priority. */
struct NotPermitted : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** The calling thread's nice value. Throws NotPermitted. */
void setNice(int nice);

/** Threads that use all the processor time they get, at nice 0. */
class BusyLoops {
public:
    explicit BusyLoops(size_t count);
    ~BusyLoops();
    BusyLoops(const BusyLoops&) = delete;
    BusyLoops& operator=(const BusyLoops&) = delete;

private:
    std::atomic<bool> mIsOver{false};
    std::vector<std::thread> mThreads;
};

/**
 * A host with one output, a sound card that buffers 40 ms, and streams at the output's rate. A
 * thread at nice -19 keeps each stream full, so that the worker is the only one to be late. A
 * further stream holds a block and stays paused.
 */
class LoadedHost {
public:
    /** `workerPriority`: the worker's SCHED_FIFO priority from its first callback on; none: it
     *  keeps the priority that the library gave it. */
    LoadedHost(size_t streamCount, std::optional<int> workerPriority);
    ~LoadedHost();
    LoadedHost(const LoadedHost&) = delete;
    LoadedHost& operator=(const LoadedHost&) = delete;

    audio_proxy_pipeline_t* pipeline() const { return mPipeline; }
    audio_proxy_stream_t* playing(size_t index) const { return mStreams[index % mStreams.size()]; }
    audio_proxy_stream_t* paused() const { return mPaused; }
    SoundCard& card() { return mCard; }

    /** Waits for the first block. Throws NotPermitted if the worker did not get its priority. */
    void waitUntilPlaying() const;
    /** Blocks so far that a stream had too few frames for. */
    uint64_t shortBlockCount() const { return mShortBlocks.load(); }

private:
    static int onBlock(void* cookie, void* buffer, size_t byteCount);

    void play(size_t byteCount);
    void keepFull(audio_proxy_stream_t* stream);
    void raiseWorker();

    const std::optional<int> mWorkerPriority;
    const std::vector<int16_t> mBlock;  // one write
    SoundCard mCard;
    audio_proxy_pipeline_t* mPipeline = nullptr;
    audio_proxy_stream_t* mPaused = nullptr;
    std::vector<audio_proxy_stream_t*> mStreams;
    std::vector<std::thread> mWriters;
    std::atomic<bool> mIsOver{false};
    std::atomic<bool> mIsPlaying{false};
    std::atomic<int> mWorkerError{0};   // an errno value
    std::atomic<int> mWriterErrors{0};  // writers without their priority
    std::atomic<uint64_t> mShortBlocks{0};
};
