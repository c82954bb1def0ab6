#include "pipeline/AudioThread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include "tests/support/Eventually.h"
#include "tests/support/FakeOutput.h"
#include "tests/support/FakeStream.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualTime.h"

using namespace android;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

/** A worker that counts its passes and can be held inside a cycle. */
class TestThread : public AudioThread {
public:
    TestThread() : AudioThread(String8("TestWorker")) {}
    ~TestThread() override { exit(); }

    bool threadLoop() override {
        pthread_getname_np(pthread_self(), mThreadName, sizeof(mThreadName));
        mRunning = true;
        return AudioThread::threadLoop();
    }
    int sendCommand(int code, int arg1, int arg2, int arg3) override {
        if (mLooksAtLists) {
            const ThreadLock::Autolock lock(mLock);
            mStreamsAtCommand = mStreams.size();
        }
        return AudioThread::sendCommand(code, arg1, arg2, arg3);
    }
    ssize_t threadLoopProcess_l() override REQUIRES(mLock) {
        ++mCycles;
        if (mStreams.size() != mKnownStreams) {
            mKnownStreams = mStreams.size();
            mCyclesOfChange = mCycles.load();
        }
        std::this_thread::sleep_for(mCycleTime.load());
        while (mHold) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        return mProduced;
    }

    std::atomic<bool> mRunning{false};
    std::atomic<int> mCycles{0};
    std::atomic<int> mCyclesOfChange{0};  // the first with as many streams as now
    size_t mKnownStreams = 0;
    bool mLooksAtLists = false;
    std::atomic<size_t> mStreamsAtCommand{0};
    std::atomic<bool> mHold{false};
    std::atomic<milliseconds> mCycleTime{milliseconds(0)};
    std::atomic<ssize_t> mProduced{0};
    char mThreadName[16] = {};
};

class AudioThreadTest : public testing::Test {
protected:
    AudioThreadTest() {
        EXPECT_TRUE(eventually([this] { return mThread->mRunning.load(); }));
        EXPECT_EQ(OK, mThread->addStream(mStream.get()));
    }
    ~AudioThreadTest() override {
        mThread->mHold = false;
        mThread->exit();
        mThread.clear();
        EXPECT_EQ(1, mStream->getStrongCount()) << "the thread has dropped its reference";
        EXPECT_EQ(1, mOutput->getStrongCount());
    }
    // With a stream and an output the worker has something to do.
    void startCycles() {
        EXPECT_EQ(OK, mThread->registerOutput(mOutput.get()));
        ASSERT_TRUE(eventually([this] { return mThread->mCycles > 0; }));
    }

    sp<TestThread> mThread{new TestThread()};
    const sp<FakeStream> mStream{new FakeStream({0})};
    const sp<FakeOutput> mOutput{new FakeOutput()};
};

TEST_F(AudioThreadTest, RunsUnderItsNameAndIdlesWithoutAStep) {
    EXPECT_STREQ("TestWorker", mThread->mThreadName);
    std::this_thread::sleep_for(milliseconds(20));
    const uint64_t before = VirtualMachine::progress().stepCount;
    std::this_thread::sleep_for(seconds(3600));
    EXPECT_GT(3U, VirtualMachine::progress().stepCount - before) << "of this thread alone";
    EXPECT_EQ(0, mThread->mCycles);
    // Nothing was produced: the base sleeps a second.
    const auto start = std::chrono::steady_clock::now();
    startCycles();
    EXPECT_TRUE(eventually([this] { return mThread->mCycles > 3; }));
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed, seconds(3));
    EXPECT_LT(passed, seconds(3) + milliseconds(2)) << "one is how often the test looks";
}

TEST_F(AudioThreadTest, HandlesCommandsInOrderOnceWithTheNextCycle) {
    mThread->mHold = true;
    startCycles();
    // The worker is inside a cycle: posting does not wait for it.
    LogCapture log;
    EXPECT_LT(timeOf([this] {
                  mThread->updateLatencyOffset(-20);
                  mThread->sendCommand(77, 0, 0, 0);
                  mThread->sendCommand(99, 0, 0, 0);
                  mThread->updateLatencyOffset(40);
                  mThread->removeCommand(99);
              }),
              kNoWait);
    EXPECT_TRUE(mStream->offsets().empty());
    mThread->mHold = false;
    EXPECT_TRUE(within(milliseconds(2), [this] { return mStream->offsets().size() == 2; }))
        << "they did not end the sleep of a second";
    EXPECT_EQ((std::vector<long>{-20, 40}), mStream->offsets());
    EXPECT_EQ((std::vector<std::string>{"W audio_thread: handleConfigEvent, unexpected event 77"}),
              log.messages());
}

TEST_F(AudioThreadTest, MissesNoCommandOnTheWayToSleep) {
    startCycles();
    // Each comes somewhere between the look at the queue and the sleep of one second.
    for (size_t i = 1; i <= 500; ++i) {
        mThread->updateLatencyOffset(static_cast<long>(i));
        ASSERT_LT(timeOf([&] {
                      while (mStream->offsets().size() < i) {
                          std::this_thread::yield();
                      }
                  }),
                  kNoWait)
            << "command " << i;
    }
}

TEST_F(AudioThreadTest, AChangeReachesTheNextCycleOfABusyWorker) {
    mThread->mProduced = 1;
    mThread->mCycleTime = milliseconds(1);
    startCycles();
    const sp<FakeStream> second(new FakeStream({0}));
    for (int i = 0; i < 50; ++i) {
        const int before = mThread->mCycles;
        EXPECT_EQ(OK, i % 2 == 0 ? mThread->addStream(second.get())
                                 : mThread->removeStream(second.get()));
        ASSERT_TRUE(eventually([&] { return mThread->mCyclesOfChange > before; }));
        EXPECT_LE(mThread->mCyclesOfChange - before, 2) << "the current one and the next";
    }
}

TEST_F(AudioThreadTest, PostingNeverWaitsForAStreamThatHandlesACommand) {
    struct SlowStream : FakeStream {
        SlowStream() : FakeStream({0}) {}
        int setDownstreamLatencyOffset(long offsetMs) override {
            mIsBusy = true;
            while (mIsHeld) {
                std::this_thread::sleep_for(milliseconds(1));
            }
            return FakeStream::setDownstreamLatencyOffset(offsetMs);
        }
        std::atomic<bool> mIsBusy{false};
        std::atomic<bool> mIsHeld{true};
    };
    const sp<SlowStream> slow(new SlowStream());
    EXPECT_EQ(OK, mThread->addStream(slow.get()));
    mThread->updateLatencyOffset(1);
    ASSERT_TRUE(eventually([&slow] { return slow->mIsBusy.load(); }));
    mThread->updateLatencyOffset(2);  // while it is held: for ever, if this waited
    slow->mIsHeld = false;
    EXPECT_TRUE(eventually([&slow] { return slow->offsets().size() == 2; }));
    EXPECT_EQ((std::vector<long>{1, 2}), slow->offsets());
    mThread->removeStream(slow.get());
}

TEST_F(AudioThreadTest, ListsCanChangeWithoutAWorker) {
    mThread->exit();
    const sp<FakeStream> second(new FakeStream({0}));
    EXPECT_EQ(OK, mThread->addStream(second.get()));
    EXPECT_EQ(2, second->getStrongCount());
    EXPECT_EQ(OK, mThread->removeStream(second.get()));
    EXPECT_EQ(1, second->getStrongCount());
}

TEST_F(AudioThreadTest, ListsAnItemOnceAndRefusesNull) {
    LogCapture log;
    mThread->mLooksAtLists = true;
    EXPECT_EQ(-EINVAL, mThread->addStream(nullptr));
    EXPECT_EQ(-EINVAL, mThread->removeStream(nullptr));
    EXPECT_EQ(-EINVAL, mThread->registerOutput(nullptr));
    EXPECT_EQ(-EINVAL, mThread->unregisterOutput(nullptr));
    const int32_t listed = mStream->getStrongCount();
    EXPECT_EQ(OK, mThread->addStream(mStream.get()));
    EXPECT_EQ(listed, mStream->getStrongCount());
    EXPECT_EQ(1U, mThread->mStreamsAtCommand) << "the command comes after the change";
    EXPECT_EQ(OK, mThread->removeStream(mStream.get()));
    EXPECT_EQ(0U, mThread->mStreamsAtCommand);
    EXPECT_EQ(listed - 1, mStream->getStrongCount());
    EXPECT_EQ(OK, mThread->removeStream(mStream.get()));
    EXPECT_EQ(OK, mThread->unregisterOutput(mOutput.get()));
    EXPECT_EQ(1U, log.messages().size()) << "this stream is not in the list";
}

TEST_F(AudioThreadTest, AnExitIsNeverAnUnexpectedEvent) {
    LogCapture log;
    for (int round = 0; round < 300; ++round) {
        const sp<TestThread> passing(new TestThread());
        passing->exit();
    }
    EXPECT_EQ(0U, log.messages().size());
    mThread->sendCommand(AudioThread::CONFIG_EXIT, 0, 0, 0);
    EXPECT_TRUE(eventually([&log] { return log.messages().size() == 1; }));
}

TEST_F(AudioThreadTest, ExitsPromptlyFromItsSleepAndTwice) {
    startCycles();
    // It is asleep for a second by now.
    EXPECT_LT(timeOf([this] {
                  std::thread second([this] { mThread->exit(); });
                  EXPECT_EQ(OK, mThread->exit());
                  second.join();
                  EXPECT_EQ(OK, mThread->exit());
              }),
              kNoWait);
}

}  // namespace
