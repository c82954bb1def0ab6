#include "avsync/AVSyncClock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <thread>

#include "avsync/AVSyncBridge.h"

using namespace android;

namespace {

nsecs_t gNowNs = 0;
constexpr uint64_t kSecond = 1'000'000'000;

sp<BridgeHalHidl> makeBridge(unsigned hwSyncId, int expectedStatus = 0) {
    sp<BridgeHalHidl> bridge;
    const sp<AVSyncBridgeFactoryHalHidl> factory(new AVSyncBridgeFactoryHalHidl());
    EXPECT_EQ(expectedStatus, factory->createHwSyncBridge(128, hwSyncId, bridge));
    return bridge;
}

class AVSyncClockTest : public testing::Test {
protected:
    AVSyncClockTest() {
        AVSyncClock::setTimeSource([] { return gNowNs; });
        mBridge = makeBridge(7);
        mClock = AVSyncClock::forId(7);
    }
    ~AVSyncClockTest() override { AVSyncClock::setTimeSource(nullptr); }

    static uint64_t positionOf(const sp<BridgeHalHidl>& bridge) {
        uint64_t positionNs = 1;
        bridge->getSyncPts(positionNs);
        return positionNs;
    }
    // What the bridge answers a second later.
    uint64_t nextPosition() {
        gNowNs += kSecond;
        EXPECT_EQ(mClock->positionNs(), positionOf(mBridge));
        return positionOf(mBridge);
    }

    sp<BridgeHalHidl> mBridge;
    sp<AVSyncClock> mClock;
};

TEST_F(AVSyncClockTest, RunsFromItsAnchorAtItsRateFreezesJumpsAndForgets) {
    mClock->jumpNs(5);
    EXPECT_EQ(0U, nextPosition()) << "not anchored";
    mBridge->updateAudioPts(10 * kSecond);
    EXPECT_EQ(11 * kSecond, nextPosition());
    mClock->setDriftPpm(200);
    EXPECT_EQ(12 * kSecond + 200'000, nextPosition());
    mClock->setDriftPpm(-1e9);  // held to standing still
    EXPECT_EQ(12 * kSecond + 200'000, nextPosition());
    mClock->setDriftPpm(std::nan(""));
    EXPECT_EQ(13 * kSecond + 200'000, nextPosition());
    mBridge->pause();
    EXPECT_FALSE(mClock->isRunning());
    EXPECT_EQ(13 * kSecond + 200'000, nextPosition());
    mBridge->resume();
    mClock->jumpNs(-200'000);
    EXPECT_EQ(14 * kSecond, nextPosition());
    mClock->jumpNs(std::numeric_limits<int64_t>::min());
    EXPECT_EQ(kSecond, nextPosition()) << "from 0";
    mBridge->stop();
    EXPECT_EQ(0U, nextPosition());
}

TEST_F(AVSyncClockTest, IsSharedByAllBridgesOfItsIdAndGoneWithTheLast) {
    mBridge->updateAudioPts(kSecond);
    EXPECT_EQ(kSecond, positionOf(makeBridge(7)));
    EXPECT_EQ(0U, positionOf(makeBridge(8)));
    mBridge.clear();
    mClock.clear();
    EXPECT_EQ(0U, AVSyncClock::forId(7)->positionNs());
    AVSyncClock::refuseBridges(-5);
    EXPECT_EQ(nullptr, makeBridge(9, -5).get());
    AVSyncClock::refuseBridges(0);
}

TEST_F(AVSyncClockTest, KeepsTheOrderedRecordOfTheNewestBridgeCalls) {
    mClock->takeRecords();
    mBridge->start();
    gNowNs += 1;
    mBridge->updateAudioPts(44);
    const std::vector<AVSyncRecord> records = mClock->takeRecords();
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(AVSyncCall::kStart, records[0].call);
    EXPECT_EQ(44U, records[1].valueNs);
    EXPECT_EQ(records[0].timeNs + 1, records[1].timeNs);
    for (uint64_t i = 0; i < 65540; ++i) {
        mBridge->setLatency(i);
    }
    EXPECT_EQ(65539U, mClock->latencyNs());
    const std::vector<AVSyncRecord> newest = mClock->takeRecords();
    EXPECT_EQ(65536U, newest.size());
    EXPECT_EQ(4U, newest.front().valueNs);
    EXPECT_EQ(65539U, newest.back().valueNs);
}

TEST(AVSyncClockThreads, ControlAndBridgeCallsFromManyThreadsAgree) {
    const sp<AVSyncClock> clock = AVSyncClock::forId(70);
    const auto churn = [] {
        for (unsigned i = 0; i < 300; ++i) {
            const sp<BridgeHalHidl> bridge = makeBridge(70 + i % 2);
            bridge->updateAudioPts(1000);
            bridge->pause();
            AVSyncClock::forId(70)->jumpNs(i);
            bridge->resume();
        }
    };
    std::thread other(churn);
    churn();
    other.join();
    EXPECT_GE(clock->positionNs(), 1000U);
}

TEST(AVSyncClockDeathTest, ClocksOutliveTheDestructorsOfAProcessThatEnds) {
#ifdef STREAMPROXY_EMULATOR
    GTEST_SKIP() << "a program under emulation can't start itself";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static sp<AVSyncClock> sClock;
            // Called late in exit(): handlers run in reverse.
            atexit([] { _exit(AVSyncClock::forId(7) == sClock ? 0 : 1); });
            sClock = AVSyncClock::forId(7);
            exit(1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
