#include "bench/pipeline/LoadedHost.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

namespace {

constexpr audio_proxy_config_t kConfig = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                          STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr size_t kBlockFrames = 960;  // a cycle
constexpr size_t kFrameBytes = 4;
constexpr std::chrono::milliseconds kDeviceBuffer{40};
constexpr std::chrono::milliseconds kPoll{5};
constexpr std::chrono::seconds kStartLimit{5};
constexpr int kWriterNice = -19;

}  // namespace

void setNice(int nice) {
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), nice) != 0) {
        throw NotPermitted("nice " + std::to_string(nice) + " is not permitted");
    }
}

BusyLoops::BusyLoops(size_t count) {
    for (size_t i = 0; i < count; ++i) {
        mThreads.emplace_back([this] {
            while (!mIsOver.load(std::memory_order_relaxed)) {
            }
        });
    }
}

BusyLoops::~BusyLoops() {
    mIsOver = true;
    for (std::thread& thread : mThreads) {
        thread.join();
    }
}

LoadedHost::LoadedHost(size_t streamCount, std::optional<int> workerPriority)
    : mWorkerPriority(workerPriority),
      mBlock(2 * kBlockFrames, 100),
      mCard(kConfig.sample_rate, kDeviceBuffer) {
    mPipeline = create_audio_proxy_pipeline();
    mPaused = create_audio_proxy_stream(&kConfig);
    for (size_t i = 0; i < streamCount; ++i) {
        mStreams.push_back(create_audio_proxy_stream(&kConfig));
    }
    if (mPaused == nullptr || mStreams.back() == nullptr) {
        throw std::runtime_error("the library refuses a stream");
    }
    // Without an output nothing takes this block.
    audio_proxy_stream_write(mPaused, mBlock.data(), kBlockFrames * kFrameBytes);
    audio_proxy_stream_pause(mPaused);
    if (audio_proxy_pipeline_register_output(mPipeline, &kConfig, this, onBlock) != 0) {
        throw std::runtime_error("the library refuses the output");
    }
    for (audio_proxy_stream_t* const stream : mStreams) {
        mWriters.emplace_back([this, stream] { keepFull(stream); });
    }
}

LoadedHost::~LoadedHost() {
    mIsOver = true;
    for (std::thread& writer : mWriters) {
        writer.join();
    }
    for (audio_proxy_stream_t* const stream : mStreams) {
        destroy_audio_proxy_stream(stream);
    }
    audio_proxy_stream_flush(mPaused);
    destroy_audio_proxy_stream(mPaused);
    audio_proxy_pipeline_unregister_output(mPipeline, this, onBlock);
    destroy_audio_proxy_pipeline(mPipeline);
}

void LoadedHost::waitUntilPlaying() const {
    const SoundCard::Clock::time_point limit = SoundCard::Clock::now() + kStartLimit;
    while (!mIsPlaying) {
        if (SoundCard::Clock::now() > limit) {
            throw std::runtime_error("nothing plays");
        }
        std::this_thread::sleep_for(kPoll);
    }
    if (mWriterErrors != 0) {
        throw NotPermitted("nice -19 is not permitted");
    }
    if (mWorkerError != 0) {
        throw NotPermitted("SCHED_FIFO is refused: " + std::string(strerror(mWorkerError)));
    }
}

void LoadedHost::keepFull(audio_proxy_stream_t* stream) {
    try {
        setNice(kWriterNice);
    } catch (const NotPermitted&) {
        ++mWriterErrors;
    }
    while (!mIsOver) {
        audio_proxy_stream_write(stream, mBlock.data(), kBlockFrames * kFrameBytes);
    }
}

int LoadedHost::onBlock(void* cookie, void* /*buffer*/, size_t byteCount) {
    static_cast<LoadedHost*>(cookie)->play(byteCount);
    return 0;
}

void LoadedHost::raiseWorker() {
    const sched_param priority = {.sched_priority = *mWorkerPriority};
    mWorkerError = pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
}

void LoadedHost::play(size_t byteCount) {
    if (!mIsPlaying && mWorkerPriority.has_value()) {
        raiseWorker();
    }
    mIsPlaying = true;
    if (byteCount != kBlockFrames * kFrameBytes) {
        ++mShortBlocks;
    }
    mCard.play(byteCount / kFrameBytes);
}
