#include "avsync/AVSyncClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "avsync/AVSyncBridge.h"

using namespace android;

namespace {

nsecs_t gNowNs = 0;
constexpr uint64_t kSecond = 1'000'000'000;

class AVSyncClockTest : public testing::Test {
protected:
    AVSyncClockTest() {
        gNowNs = 5 * static_cast<nsecs_t>(kSecond);
        AVSyncClock::setTimeSource([] { return gNowNs; });
        AVSyncBridgeFactoryHalHidl* const factory = new AVSyncBridgeFactoryHalHidl();
        const sp<AVSyncBridgeFactoryHalHidl> held(factory);
        EXPECT_EQ(0, factory->createHwSyncBridge(128, 7, mBridge));
        mClock = AVSyncClock::forId(7);
    }
    ~AVSyncClockTest() override {
        AVSyncClock::setTimeSource(nullptr);
        AVSyncClock::refuseBridges(0);
    }
    uint64_t position() {
        uint64_t positionNs = 1;
        mBridge->getSyncPts(positionNs);
        EXPECT_EQ(mClock->positionNs(), positionNs);
        return positionNs;
    }

    sp<BridgeHalHidl> mBridge;
    sp<AVSyncClock> mClock;
};

TEST_F(AVSyncClockTest, RunsFromItsAnchorAtItsRate) {
    EXPECT_EQ(0U, position());
    gNowNs += kSecond;
    EXPECT_EQ(0U, position()) << "not anchored";
    mClock->jumpNs(5);
    EXPECT_EQ(0U, position());
    mBridge->updateAudioPts(10 * kSecond);
    gNowNs += kSecond;
    EXPECT_EQ(11 * kSecond, position());
    mClock->setDriftPpm(200);
    gNowNs += 10 * kSecond;
    EXPECT_EQ(21 * kSecond + 2'000'000, position());
    mClock->setDriftPpm(-1e9);  // held to standing still
    gNowNs += kSecond;
    EXPECT_EQ(21 * kSecond + 2'000'000, position());
    mClock->setDriftPpm(std::nan(""));
    gNowNs += kSecond;
    EXPECT_EQ(22 * kSecond + 2'000'000, position());
}

TEST_F(AVSyncClockTest, FreezesJumpsAndForgets) {
    mBridge->updateAudioPts(kSecond);
    mBridge->pause();
    gNowNs += kSecond;
    EXPECT_EQ(kSecond, position());
    EXPECT_FALSE(mClock->isRunning());
    mBridge->resume();
    gNowNs += kSecond;
    EXPECT_EQ(2 * kSecond, position());
    mClock->jumpNs(-400'000'000);
    EXPECT_EQ(1'600'000'000U, position());
    mClock->jumpNs(std::numeric_limits<int64_t>::min());
    EXPECT_EQ(0U, position());
    mClock->setPositionNs(9 * kSecond);
    EXPECT_EQ(9 * kSecond, position());
    mBridge->stop();
    gNowNs += kSecond;
    EXPECT_EQ(0U, position());
}

TEST_F(AVSyncClockTest, IsSharedByAllBridgesOfItsIdAndGoneWithTheLast) {
    sp<BridgeHalHidl> second;
    sp<BridgeHalHidl> other;
    const sp<AVSyncBridgeFactoryHalHidl> factory(new AVSyncBridgeFactoryHalHidl());
    ASSERT_EQ(0, factory->createHwSyncBridge(128, 7, second));
    ASSERT_EQ(0, factory->createHwSyncBridge(128, 8, other));
    mBridge->updateAudioPts(kSecond);
    uint64_t positionNs = 0;
    second->getSyncPts(positionNs);
    EXPECT_EQ(kSecond, positionNs);
    other->getSyncPts(positionNs);
    EXPECT_EQ(0U, positionNs);
    EXPECT_EQ(8U, other->getHwSyncId());
    mBridge.clear();
    second.clear();
    mClock.clear();
    EXPECT_EQ(0U, AVSyncClock::forId(7)->positionNs());
    AVSyncClock::refuseBridges(-5);
    EXPECT_EQ(-5, factory->createHwSyncBridge(128, 9, other));
    EXPECT_EQ(8U, other->getHwSyncId());
}

TEST_F(AVSyncClockTest, KeepsTheOrderedRecordOfBridgeCalls) {
    mClock->takeRecords();
    mBridge->setLatency(30);
    mBridge->start();
    gNowNs += 1;
    mBridge->updateAudioPts(44);
    const std::vector<AVSyncRecord> records = mClock->takeRecords();
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ(AVSyncCall::kSetLatency, records[0].call);
    EXPECT_EQ(30U, records[0].valueNs);
    EXPECT_EQ(30U, mClock->latencyNs());
    EXPECT_EQ(AVSyncCall::kStart, records[1].call);
    EXPECT_EQ(44U, records[2].valueNs);
    EXPECT_EQ(records[1].timeNs + 1, records[2].timeNs);
    for (int i = 0; i < 65540; ++i) {
        mBridge->setLatency(static_cast<uint64_t>(i));
    }
    const std::vector<AVSyncRecord> newest = mClock->takeRecords();
    EXPECT_EQ(65536U, newest.size());
    EXPECT_EQ(4U, newest.front().valueNs);
    EXPECT_EQ(65539U, newest.back().valueNs);
}

TEST(AVSyncClockThreads, ControlAndBridgeCallsFromManyThreadsAgree) {
    const sp<AVSyncClock> clock = AVSyncClock::forId(70);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([t] {
            const sp<AVSyncBridgeFactoryHalHidl> factory(new AVSyncBridgeFactoryHalHidl());
            for (int i = 0; i < 300; ++i) {
                sp<BridgeHalHidl> bridge;
                factory->createHwSyncBridge(128, 70 + static_cast<unsigned>(i % 2), bridge);
                uint64_t positionNs = 0;
                bridge->updateAudioPts(1000);
                bridge->getSyncPts(positionNs);
                bridge->pause();
                AVSyncClock::forId(70)->jumpNs(t);
                bridge->resume();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(clock->positionNs(), 1000U);
}

}  // namespace
