#include "pipeline/AudioThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include "tests/support/Eventually.h"
#include "tests/support/FakeOutput.h"
#include "tests/support/FakeStream.h"
#include "tests/support/LogCapture.h"

using namespace android;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

/** A worker that counts its passes and can be held inside a cycle. */
class TestThread : public AudioThread {
public:
    TestThread() : AudioThread(String8("TestWorker")) {}
    ~TestThread() override { exit(); }

    bool threadLoop() override {
        pthread_getcpuclockid(pthread_self(), &mCpuClock);
        pthread_getname_np(pthread_self(), mThreadName, sizeof(mThreadName));
        mRunning = true;
        return AudioThread::threadLoop();
    }
    ssize_t threadLoopProcess_l() override REQUIRES(mLock) {
        ++mCycles;
        std::this_thread::sleep_for(mCycleTime.load());
        while (mHold) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        return mProduced;
    }
    int64_t cpuNs() const {
        timespec used{};
        clock_gettime(mCpuClock, &used);
        return used.tv_sec * 1'000'000'000 + used.tv_nsec;
    }

    std::atomic<bool> mRunning{false};
    std::atomic<int> mCycles{0};
    std::atomic<bool> mHold{false};
    std::atomic<milliseconds> mCycleTime{milliseconds(0)};
    std::atomic<ssize_t> mProduced{0};
    char mThreadName[16] = {};
    clockid_t mCpuClock = 0;
};

class AudioThreadTest : public testing::Test {
protected:
    AudioThreadTest() {
        EXPECT_TRUE(eventually([this] { return mThread->mRunning.load(); }));
        mThread->addStream(mStream.get());
    }
    ~AudioThreadTest() override {
        mThread->mHold = false;
        mThread->exit();
        mThread.clear();
        EXPECT_EQ(1, mStream->getStrongCount()) << "it ends with its last reference";
        EXPECT_EQ(1, mOutput->getStrongCount());
    }
    // With a stream and an output the worker has something to do.
    void startCycles() {
        mThread->registerOutput(mOutput.get());
        ASSERT_TRUE(eventually([this] { return mThread->mCycles > 0; }));
    }

    sp<TestThread> mThread{new TestThread()};
    const sp<FakeStream> mStream{new FakeStream({0})};
    const sp<FakeOutput> mOutput{new FakeOutput()};
};

TEST_F(AudioThreadTest, RunsUnderItsNameAndIdlesWithoutProcessorTime) {
    EXPECT_STREQ("TestWorker", mThread->mThreadName);
    std::this_thread::sleep_for(milliseconds(20));
    const int64_t before = mThread->cpuNs();
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_LT(mThread->cpuNs() - before, 2'000'000);
    EXPECT_EQ(0, mThread->mCycles);
    startCycles();
    // Nothing was produced: the base sleeps a second.
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(1, mThread->mCycles);
}

TEST_F(AudioThreadTest, HandlesCommandsInOrderOnceWithTheNextCycle) {
    mThread->mHold = true;
    startCycles();
    // The worker is inside a cycle: posting does not wait for it.
    LogCapture log;
    const auto start = steady_clock::now();
    mThread->updateLatencyOffset(-20);
    mThread->sendCommand(77, 0, 0, 0);
    mThread->sendCommand(99, 0, 0, 0);
    mThread->updateLatencyOffset(40);
    mThread->removeCommand(99);
    EXPECT_LT(steady_clock::now() - start, milliseconds(500));
    EXPECT_TRUE(mStream->offsets().empty());
    mThread->mHold = false;
    EXPECT_TRUE(within(milliseconds(700), [this] { return mStream->offsets().size() == 2; }))
        << "the sleep of a second did not see them";
    EXPECT_EQ((std::vector<long>{-20, 40}), mStream->offsets());
    EXPECT_EQ((std::vector<std::string>{"W audio_thread: handleConfigEvent, unexpected event 77"}),
              log.messages());
}

TEST_F(AudioThreadTest, NoCommandPostedOnTheWayToSleepIsMissed) {
    startCycles();
    // Each comes somewhere between the look at the queue and the sleep of one second.
    for (size_t i = 1; i <= 3000; ++i) {
        mThread->updateLatencyOffset(static_cast<long>(i));
        const auto posted = steady_clock::now();
        while (mStream->offsets().size() < i) {
            ASSERT_LT(steady_clock::now() - posted, milliseconds(700)) << "command " << i;
        }
    }
}

TEST_F(AudioThreadTest, AControlCallGetsTheLockAlthoughTheWorkerTakesItAgainAtOnce) {
    mThread->mProduced = 1;  // never sleeps between its cycles
    mThread->mCycleTime = milliseconds(1);
    startCycles();
    for (int i = 0; i < 50; ++i) {
        const int before = mThread->mCycles;
        mThread->addStream(mStream.get());
        // The one under way, and one that began while this thread was not running.
        EXPECT_LE(mThread->mCycles - before, 3);
    }
}

TEST_F(AudioThreadTest, ListsAnItemOnceAndAnswersNullWithEinval) {
    LogCapture log;
    EXPECT_EQ(-EINVAL, mThread->addStream(nullptr));
    EXPECT_EQ(-EINVAL, mThread->removeStream(nullptr));
    EXPECT_EQ(-EINVAL, mThread->registerOutput(nullptr));
    EXPECT_EQ(-EINVAL, mThread->unregisterOutput(nullptr));
    const int32_t listed = mStream->getStrongCount();
    EXPECT_EQ(OK, mThread->addStream(mStream.get()));
    EXPECT_EQ(listed, mStream->getStrongCount());
    EXPECT_EQ(OK, mThread->removeStream(mStream.get()));
    EXPECT_EQ(listed - 1, mStream->getStrongCount());
    EXPECT_EQ(OK, mThread->removeStream(mStream.get()));
    EXPECT_EQ(OK, mThread->unregisterOutput(mOutput.get()));
    EXPECT_EQ(1U, log.messages().size()) << "this stream is not in the list";
}

TEST_F(AudioThreadTest, ExitsPromptlyFromItsSleepOnceAndAgain) {
    startCycles();
    const auto start = steady_clock::now();  // asleep for a second by now
    std::thread second([this] { mThread->exit(); });
    EXPECT_EQ(OK, mThread->exit());
    second.join();
    EXPECT_EQ(OK, mThread->exit());
    EXPECT_LT(steady_clock::now() - start, milliseconds(500));
}

}  // namespace
