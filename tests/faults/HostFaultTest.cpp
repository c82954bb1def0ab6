// Threads, signals, callbacks and descriptors that misbehave.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "avsync/AVSyncClock.h"
#include "interface/streamproxy.h"
#include "tests/support/Bursts.h"
#include "tests/support/Eventually.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

constexpr audio_proxy_config_t kMix = {48000, 1, 3, 0};
constexpr audio_proxy_config_t kTunnel = {48000, 1, 3, 0x40};

class HostFaultTest : public testing::Test {
protected:
    HostFaultTest() { audio_proxy_pipeline_register_output(mPipeline, &kMix, this, &hear); }
    ~HostFaultTest() override {
        audio_proxy_pipeline_unregister_output(mPipeline, this, &hear);
        destroy_audio_proxy_stream(mStream);
        destroy_audio_proxy_pipeline(mPipeline);
    }

    int writeFrames(const std::vector<uint32_t>& frames) {
        return audio_proxy_stream_write(mStream, frames.data(), frames.size() * sizeof(uint32_t));
    }
    /** Frames of two samples that, together, carry their number. */
    std::vector<uint32_t> nextFrames(size_t count) {
        std::vector<uint32_t> frames(count);
        for (uint32_t& frame : frames) {
            frame = ++mLastFrame;
        }
        return frames;
    }
    std::vector<uint32_t> heard() {
        const std::lock_guard<std::mutex> lock(mHeardLock);
        return mHeard;
    }

    LogCapture mLog;
    audio_proxy_pipeline_t* const mPipeline = create_audio_proxy_pipeline();
    audio_proxy_stream_t* const mStream = create_audio_proxy_stream(&kMix);
    std::function<void()> mOnBlock = [] {};  // set before the first block comes
    std::atomic<int> mBlocks{0};
    uint32_t mLastFrame = 0;

private:
    static int hear(void* cookie, void* buffer, size_t byteCount) {
        auto* const test = static_cast<HostFaultTest*>(cookie);
        {
            const auto* const frames = static_cast<uint32_t*>(buffer);
            const std::lock_guard<std::mutex> lock(test->mHeardLock);
            test->mHeard.insert(test->mHeard.end(), frames, frames + byteCount / sizeof(uint32_t));
        }
        ++test->mBlocks;
        test->mOnBlock();
        return -EIO;  // heard by nobody
    }

    std::mutex mHeardLock;
    std::vector<uint32_t> mHeard;
};

TEST(ThreadFault, WithoutAThreadThereIsNoPipelineAndThenThereIs) {
#ifdef STREAMPROXY_SANITIZED
    GTEST_SKIP() << "the sanitizer starts the threads here";
#endif
    const LogCapture log;
    FaultInjection::refuseThreads(true);
    EXPECT_EQ(nullptr, create_audio_proxy_pipeline());
    EXPECT_EQ(nullptr, create_audio_proxy_stream(&kMix));
    FaultInjection::refuseThreads(false);
    EXPECT_EQ(1U,
              log.count("E audio_thread: onFirstRef, fail to start the worker MixerThread: -11"));
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
    ASSERT_NE(nullptr, pipeline);
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kMix);
    EXPECT_NE(nullptr, stream);
    EXPECT_EQ(0, destroy_audio_proxy_stream(stream));
    EXPECT_EQ(0, destroy_audio_proxy_pipeline(pipeline));
}

/** Interrupts two threads, over and over, with a signal that restarts nothing. */
class SignalStorm {
public:
    SignalStorm(pthread_t first, pthread_t second) {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++sCount; };
        sigaction(SIGUSR1, &action, &mFormer);
        mThread = std::thread([this, first, second] {
            while (!mDone) {
                pthread_kill(first, SIGUSR1);
                pthread_kill(second, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    ~SignalStorm() {
        mDone = true;
        mThread.join();
        sigaction(SIGUSR1, &mFormer, nullptr);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    static inline std::atomic<int> sCount{0};

private:
    struct sigaction mFormer = {};
    std::atomic<bool> mDone{false};
    std::thread mThread;
};

TEST_F(HostFaultTest, SignalsCostNoFrame) {
    std::atomic<pthread_t> worker{};
    mOnBlock = [&worker] {
        worker = pthread_self();
        std::this_thread::sleep_for(milliseconds(2));
    };
    writeFrames(nextFrames(960));
    ASSERT_TRUE(eventually([this] { return mBlocks == 1; }));
    const SignalStorm storm(pthread_self(), worker);
    for (int i = 0; i < 100; ++i) {  // most of them wait for room
        EXPECT_EQ(4000, writeFrames(nextFrames(1000)));
    }
    EXPECT_TRUE(eventually([this] { return heard().size() == mLastFrame; }));
    EXPECT_GT(SignalStorm::sCount, 100);
    const auto frames = heard();
    ASSERT_EQ(mLastFrame, frames.size());
    for (uint32_t i = 0; i < frames.size(); ++i) {
        ASSERT_EQ(i + 1, frames[i]);
    }
}

TEST_F(HostFaultTest, ACallbackThatBlocksForSecondsHoldsUpNoStream) {
    mOnBlock = [this] {
        if (mBlocks == 1) {
            std::this_thread::sleep_for(seconds(3));
        }
    };
    writeFrames(nextFrames(960));
    ASSERT_TRUE(eventually([this] { return mBlocks == 1; }));
    const auto start = steady_clock::now();
    audio_proxy_stream_set_volume(mStream, 1, 1);
    audio_proxy_stream_pause(mStream);
    audio_proxy_stream_dump(mStream, -1);
    audio_proxy_stream_flush(mStream);
    EXPECT_LT(steady_clock::now() - start, milliseconds(900));
    EXPECT_EQ(8000, writeFrames(nextFrames(3000))) << "what fits, after about a second";
    EXPECT_LT(steady_clock::now() - start, milliseconds(2500));
    EXPECT_EQ(1, mBlocks);
    EXPECT_EQ(0, audio_proxy_pipeline_dump(mPipeline, -1));
    EXPECT_LT(steady_clock::now() - start, seconds(10));
    EXPECT_TRUE(eventually([this] { return heard().size() == 2960; }));
}

/** Calls all that a callback may call as well. */
void useStream(audio_proxy_stream_t* stream) {
    const std::vector<uint8_t> garbage(100);
    audio_proxy_stream_open(stream);
    audio_proxy_stream_set_volume(stream, 1, 0.5F);
    audio_proxy_stream_set_downstream_latency(stream, 20, 0);
    audio_proxy_stream_set_parameters(stream, "hw_av_sync=3");
    audio_proxy_stream_get_latency(stream);
    audio_proxy_stream_write(stream, garbage.data(), garbage.size());
    audio_proxy_stream_pause(stream);
    audio_proxy_stream_resume(stream);
    audio_proxy_stream_dump(stream, -1);
    audio_proxy_stream_flush(stream);
    audio_proxy_stream_write(stream, garbage.data(), garbage.size());
    EXPECT_EQ(0, audio_proxy_stream_close(stream));
}

TEST_F(HostFaultTest, ACallbackMayUseStreamsThatAHostThreadUsesToo) {
    audio_proxy_stream_t* const tunnel = create_audio_proxy_stream(&kTunnel);
    audio_proxy_stream_t* const other = create_audio_proxy_stream(&kMix);
    std::atomic<int> used{0};
    mOnBlock = [&] {
        if (used < 3) {
            useStream(other);
            useStream(tunnel);
            ++used;
        }
    };
    for (const auto limit = steady_clock::now() + seconds(60);
         used < 3 && steady_clock::now() < limit;) {
        writeFrames(nextFrames(960));
        audio_proxy_stream_pause(tunnel);
        audio_proxy_stream_close(tunnel);
    }
    EXPECT_EQ(3, used);
    EXPECT_EQ(0, destroy_audio_proxy_stream(other));
    EXPECT_EQ(0, destroy_audio_proxy_stream(tunnel));
}

TEST_F(HostFaultTest, AStreamNeverWaitsForACallbackThatWaitsForItsCaller) {
    std::mutex hostLock;
    std::atomic<bool> isWaiting{false};
    mOnBlock = [&] {
        isWaiting = true;
        const std::lock_guard<std::mutex> lock(hostLock);
    };
    audio_proxy_stream_t* const tunnel = create_audio_proxy_stream(&kTunnel);
    {
        const std::lock_guard<std::mutex> lock(hostLock);
        writeFrames(nextFrames(960));
        ASSERT_TRUE(eventually([&isWaiting] { return isWaiting.load(); }));
        for (audio_proxy_stream_t* const stream : {mStream, tunnel}) {
            useStream(stream);
        }
        EXPECT_EQ(1, mBlocks) << "the callback waits all the while";
    }
    EXPECT_EQ(0, destroy_audio_proxy_stream(tunnel));
}

TEST(PipelineFault, NoCallbackComesOnceThePipelineIsDestroyedWhoeverElseUsesIt) {
    struct Host {
        std::atomic<bool> isGone{false};
        std::atomic<int> lateCalls{0};
    };
    const int nowhere = open("/dev/null", O_WRONLY);
    for (int round = 0; round < 100; ++round) {
        Host host;
        audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
        const audio_proxy_output_callback_t hear = [](void* cookie, void*, size_t) {
            auto* const heard = static_cast<Host*>(cookie);
            heard->lateCalls += heard->isGone ? 1 : 0;
            return 0;
        };
        audio_proxy_pipeline_register_output(pipeline, &kMix, &host, hear);
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kMix);
        std::atomic<bool> done{false};
        std::thread writer([&] {
            const std::vector<uint8_t> block(3840);
            while (!done) {
                audio_proxy_stream_write(stream, block.data(), block.size());
            }
        });
        std::thread dumper([&] {
            while (!done) {
                audio_proxy_pipeline_dump(pipeline, nowhere);
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(500 + 13 * round));
        EXPECT_EQ(0, destroy_audio_proxy_pipeline(pipeline));
        host.isGone = true;
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        done = true;
        writer.join();
        dumper.join();
        EXPECT_EQ(0, host.lateCalls);
        EXPECT_EQ(-EINVAL, audio_proxy_stream_open(stream)) << "it went with its pipeline";
        audio_proxy_pipeline_t* const next = create_audio_proxy_pipeline();
        audio_proxy_pipeline_unregister_output(next, &host, hear);
        destroy_audio_proxy_pipeline(next);
    }
    close(nowhere);
}

TEST(PipelineFault, AnOpenTunnelStreamThatIsLeftGoesWithItsPipeline) {
    constexpr uint32_t kHwSyncId = 77;
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kTunnel);
    audio_proxy_stream_set_parameters(stream, "hw_av_sync=77");
    const Bytes burst = makeBurst({.ptsNs = 5'000'000'000}, Bytes(400));
    audio_proxy_stream_write(stream, burst.data(), burst.size());
    {
        const auto clock = android::AVSyncClock::forId(kHwSyncId);
        EXPECT_TRUE(clock->isRunning());
        const int32_t held = clock->getStrongCount();
        EXPECT_EQ(0, destroy_audio_proxy_pipeline(pipeline));
        EXPECT_EQ(held - 1, clock->getStrongCount()) << "the bridge went with the stream";
        EXPECT_FALSE(clock->isRunning());
    }
    EXPECT_EQ(-EINVAL, audio_proxy_stream_flush(stream));
}

TEST_F(HostFaultTest, DumpsSurviveDescriptorsThatTakeNothing) {
    signal(SIGPIPE, SIG_DFL);
    int broken[2];
    int full[2];
    ASSERT_EQ(0, pipe(broken));
    ASSERT_EQ(0, pipe2(full, O_NONBLOCK));
    close(broken[0]);
    const std::vector<char> filling(4096, '.');
    while (write(full[1], filling.data(), filling.size()) > 0) {
    }
    const int device = open("/dev/full", O_WRONLY);
    const int closed = dup(device);
    close(closed);
    const auto isPending = [] {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    };
    const auto dumpAll = [&] {
        for (const int fd : {-1, closed, device, full[1], broken[1]}) {
            EXPECT_EQ(0, audio_proxy_pipeline_dump(mPipeline, fd));
            EXPECT_EQ(0, audio_proxy_stream_dump(mStream, fd));
        }
    };
    dumpAll();
    EXPECT_FALSE(isPending());
    // A host that blocks the signal itself gets none from a dump, and keeps the one it had.
    sigset_t brokenPipe;
    sigset_t former;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
    dumpAll();
    EXPECT_FALSE(isPending());
    pthread_kill(pthread_self(), SIGPIPE);
    dumpAll();
    EXPECT_TRUE(isPending());
    const timespec now = {};
    sigtimedwait(&brokenPipe, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    for (const int fd : {broken[1], full[0], full[1], device}) {
        close(fd);
    }
}

}  // namespace
