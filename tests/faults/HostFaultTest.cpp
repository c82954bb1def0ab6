// Threads, signals and descriptors that misbehave.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "avsync/AVSyncClock.h"
#include "interface/streamproxy.h"
#include "tests/faults/HostFault.h"
#include "tests/support/Bursts.h"
#include "tests/support/Eventually.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"

using std::chrono::milliseconds;

namespace {

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
