#include "tools/mix/FeedBoard.h"

#include <gtest/gtest.h>

#include <thread>

namespace android {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kForever{60'000};

TEST(FeedBoard, APauseDoesNotHitAFeederInsideAWrite) {
    FeedBoard board(1);
    ASSERT_TRUE(board.beginWrite(0));
    EXPECT_FALSE(board.setPaused(0)) << "a late write would open the stream again";
    EXPECT_FALSE(board.waitUntilIdle(milliseconds(0)));
    board.endWrite(0, 10, false);
    EXPECT_TRUE(board.setPaused(0));
    EXPECT_FALSE(board.beginWrite(0));
    EXPECT_EQ(0, board.waitForDemand(0)) << "no further demand is made";
    EXPECT_TRUE(board.isFed());
}

TEST(FeedBoard, TheMixWaitsForEveryInputAndAFeederForItsDemand) {
    FeedBoard board(2);
    std::thread feeder([&] {
        while (const int64_t frameCount = board.waitForDemand(1)) {
            board.beginWrite(1);
            board.endWrite(1, std::min<int64_t>(frameCount, 30), frameCount < 30);
        }
    });
    board.demand(0, 50);
    board.demand(1, 100);
    EXPECT_FALSE(board.waitUntilFed(milliseconds(0)));
    board.beginWrite(0);
    board.endWrite(0, 50, false);
    EXPECT_TRUE(board.waitUntilFed(kForever));
    EXPECT_EQ(100, board.input(1).writtenFrames);
    EXPECT_EQ(1, board.input(1).shortWriteCount);
    board.end(FeedBoard::State::FAILED, "first");
    board.end(FeedBoard::State::FINISHED);
    feeder.join();
    EXPECT_EQ(FeedBoard::State::FAILED, board.waitForEnd(kForever));
    EXPECT_EQ("first", board.failure());
    EXPECT_FALSE(board.beginWrite(0));
}

TEST(FeedBoard, OnlyAnInputThatPadsIsAskedForMore) {
    FeedBoard board(1);
    board.demandMore(0, 20);
    EXPECT_EQ(0, board.input(0).demandFrames);
    board.setAudioEnd(0, 5);
    board.demandMore(0, 20);
    EXPECT_EQ(20, board.input(0).demandFrames);
}

}  // namespace
}  // namespace android
