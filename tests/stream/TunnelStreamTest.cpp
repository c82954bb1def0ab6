#include "stream/TunnelStream.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

#include "tests/support/Bursts.h"
#include "tests/support/Eventually.h"
#include "tests/support/FakeBridge.h"
#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualTime.h"

using namespace android;
using std::chrono::milliseconds;

namespace {

using Calls = std::vector<std::string>;

constexpr uint32_t kAvSync = 0x55550002;
constexpr uint32_t kFreeRun = 0x66660002;

// Bytes that count from `first` on.
Bytes counted(size_t byteCount, uint8_t first = 1) {
    Bytes bytes(byteCount);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes burst(uint64_t ptsMs, const Bytes& payload, uint32_t magic = kAvSync) {
    return makeBurst({.ptsNs = ptsMs * 1'000'000, .magic = magic}, payload);
}

// 48 kHz, 16 bits, stereo; closed at the end, when nothing may refer to it any more.
struct TestStream {
    explicit TestStream(uint32_t frameCount, uint32_t rateHz = 48000)
        : stream(new TunnelStream(rateHz, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                  AUDIO_OUTPUT_FLAG_HW_AV_SYNC, frameCount)) {
        stream->config(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    }
    ~TestStream() {
        stream->flush();
        stream->close();
        EXPECT_EQ(1, stream->getStrongCount()) << "something still refers to the closed stream";
    }
    TunnelStream* operator->() const { return stream.get(); }

    void write(const Bytes& bytes) {
        stream->open();
        EXPECT_EQ(static_cast<int>(bytes.size()), stream->write(bytes.data(), bytes.size()));
    }
    // What reached the stream's buffer.
    Bytes payload() {
        Bytes bytes(1 << 17);
        const int byteCount = stream->read(bytes.data(), bytes.size());
        bytes.resize(static_cast<size_t>(std::max(0, byteCount)));
        return bytes;
    }

    const sp<TunnelStream> stream;
};

class TunnelStreamTest : public testing::Test {
protected:
    ~TunnelStreamTest() override {
        FakeBridge::sRefusal = 0;
        FakeBridge::sLast.clear();
    }
    FakeBridge& connect(int id = 5) {
        mStream->setParameters(("hw_av_sync=" + std::to_string(id)).c_str());
        return *FakeBridge::sLast;
    }

    TestStream mStream{30'000};
    LogCapture mLog;
};

TEST_F(TunnelStreamTest, AnchorsTheClockThenPutsSilenceAheadOfABurstThatLeads) {
    FakeBridge& bridge = connect();
    EXPECT_EQ((std::pair{128U, 5U}), FakeBridge::sAsked);
    bridge.setPositionMs(1000);
    mStream.write(burst(1000, counted(4)));
    EXPECT_EQ((Calls{"latency 0", "start", "pts 1000"}), bridge.takeCalls());
    mStream.write(burst(1000, counted(4, 5)));
    mStream.write(burst(1340, counted(8, 100)));
    EXPECT_EQ(Calls(), bridge.takeCalls());
    EXPECT_EQ(
        (std::vector<std::string>{"D TunnelStream: fill, filling silience 340 ms, 65280 bytes"}),
        mLog.messages());
    Bytes expected = counted(8);
    expected.resize(8 + 340 * 4 * 48);
    append(expected, counted(8, 100));
    EXPECT_EQ(expected, mStream.payload());
}

TEST_F(TunnelStreamTest, DropsTheOldestPayloadOfALateStreamAcrossRunsAndFlushes) {
    FakeBridge& bridge = connect();
    mStream.write(burst(0, {}));
    bridge.setPositionMs(1110);
    mStream.write(burst(1000, counted(10'000)));  // 110 ms are 21120 bytes
    const Bytes late = counted(12'000, 9);
    mStream.write(burst(1110, late));
    EXPECT_EQ(Bytes(late.begin() + 11'120, late.end()), mStream.payload());
    EXPECT_EQ((std::vector<std::string>{"D TunnelStream: drop, drop 110 ms",
                                        "W TunnelStream: onBurstPayloadParsed, drop bytes 10000",
                                        "W TunnelStream: onBurstPayloadParsed, drop bytes 11120"}),
              mLog.messages());
    // A new drop replaces what is pending, and a flush leaves it pending.
    mStream->drop(1000);
    mStream->drop(1);
    mStream->flush();
    mStream.write(burst(1110, counted(200)));
    EXPECT_EQ(counted(8, 193), mStream.payload());
}

TEST_F(TunnelStreamTest, FollowsTheModesThatHeadersAnnounce) {
    mStream.write(burst(0, counted(4), kFreeRun));
    FakeBridge& bridge = connect();
    mStream.write(burst(5000, counted(4, 5)));
    EXPECT_EQ((Calls{"latency 0", "pts 5000"}), bridge.takeCalls())
        << "without a bridge free run is not entered; a bridge made while open is not started";
    mStream.write(burst(9000, counted(4, 9), kFreeRun));
    mStream.write(burst(9000, counted(4, 13), kFreeRun));
    EXPECT_EQ((Calls{"pause"}), bridge.takeCalls());
    mStream.write(burst(6000, counted(4, 17)));
    EXPECT_EQ((Calls{"resume", "pts 6000"}), bridge.takeCalls());
    EXPECT_EQ(counted(20), mStream.payload());
    mStream->updateMode(HW_SYNC_MODE_INVALID);
    EXPECT_EQ((std::vector<std::string>{"E TunnelStream: updateMode, Unknown hw sync mode -1"}),
              mLog.messages());
}

TEST_F(TunnelStreamTest, ControlOperationsReachTheBridgeAndReArmThePolicy) {
    FakeBridge& bridge = connect();
    bridge.setPositionMs(1000);
    mStream.write(burst(1000, {}));
    bridge.takeCalls();
    EXPECT_EQ(OK, mStream->pause());
    EXPECT_EQ(OK, mStream->resume());
    EXPECT_FALSE(mStream->isOpened());
    mStream.write(burst(1000, {}));
    EXPECT_EQ((Calls{"pause", "resume", "start", "pts 1000"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->flush());
    mStream.write(burst(1001, {}));
    EXPECT_EQ((Calls{"pts 1001"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->close());
    EXPECT_EQ(OK, mStream->open());
    EXPECT_EQ(OK, mStream->open());
    mStream->pause();
    EXPECT_EQ(OK, mStream->close());
    EXPECT_EQ((Calls{"stop", "start", "pause"}), bridge.takeCalls())
        << "a paused stream's close stops nothing";
}

TEST_F(TunnelStreamTest, TellsPolicyAndBridgeALatencyThatChanged) {
    EXPECT_EQ(OK, mStream->setDownstreamLatency(30, 0));
    FakeBridge& bridge = connect();
    EXPECT_EQ(OK, mStream->setDownstreamLatency(100, -50));
    EXPECT_EQ(OK, mStream->setDownstreamLatency(60, -10));  // the same sum
    EXPECT_EQ(-EINVAL, mStream->setDownstreamLatency(100, -150));
    EXPECT_EQ(-EINVAL, mStream->setDownstreamLatencyOffset(-61));
    EXPECT_EQ((Calls{"latency 30", "latency 50"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->setDownstreamLatencyOffset(-20));
    EXPECT_EQ(OK, mStream->setLatency(60, -20, false));
    EXPECT_EQ((Calls{"latency 40", "latency 40"}), bridge.takeCalls());
    EXPECT_EQ(1U,
              mLog.count("E TunnelStream: setLatency, invalid latency 60 ms, or offset -61 ms"));
    // The first decision waits until the timestamp has passed the latency.
    mStream.write(burst(39, {}));
    EXPECT_EQ((Calls{"start"}), bridge.takeCalls());
    mStream.write(burst(40, {}));
    EXPECT_EQ((Calls{"pts 40"}), bridge.takeCalls());
}

TEST_F(TunnelStreamTest, MakesABridgeForEachNewIdAndKeepsTheOldOneWhenRefused) {
    FakeBridge& first = connect(5);
    EXPECT_EQ(&first, &connect(5));
    const sp<FakeBridge> kept(&first);
    EXPECT_NE(&first, &connect(6));
    EXPECT_EQ(1, kept->getStrongCount());
    FakeBridge::sRefusal = -19;
    FakeBridge& second = connect(7);
    EXPECT_EQ((std::vector<std::string>{
                  "E TunnelStream: setParameters, fail to create av sync bridge -19"}),
              mLog.messages());
    mStream.write(burst(10, {}));
    EXPECT_EQ((Calls{"latency 0", "start", "pts 10"}), second.takeCalls());
    EXPECT_EQ(OK, mStream->setParameters("other=1;hw_av_sync=x"));
    EXPECT_EQ(OK, mStream->setParameters(nullptr));
}

TEST_F(TunnelStreamTest, AnOddBurstCostsItselfWhereverWritesCutIt) {
    // Bursts of 6, 7 and 8 bytes over frames of 4, written 1, 2, 3, ... bytes at a time.
    Bytes stream = burst(0, counted(6));
    append(stream, burst(0, counted(7, 7)));
    append(stream, burst(0, counted(8, 14)));
    Bytes whole = counted(4);
    append(whole, counted(4, 7));
    append(whole, counted(8, 14));
    for (size_t step = 1; step < stream.size(); ++step) {
        for (size_t at = 0; at < stream.size(); at += step) {
            mStream.write(Bytes(&stream[at], stream.data() + std::min(stream.size(), at + step)));
        }
        EXPECT_EQ(whole, mStream.payload()) << "step " << step;
    }
    EXPECT_EQ(stream.size() - 1, mLog.count("W audio_stream: write, some bytes (2) are missed"));
    // What a flush or a fault cuts off is not glued to what comes later.
    mStream.write(burst(0, counted(6)));
    mStream->flush();
    mStream.write(burst(0, counted(4, 50)));
    EXPECT_EQ(counted(4, 50), mStream.payload());
    Bytes broken = burst(0, counted(5));
    append(broken, Bytes{0x55, 0x55, 0x55});
    append(broken, burst(0, counted(4, 60)));
    mStream.write(broken);
    EXPECT_EQ(4U + 4U, mStream.payload().size()) << "a byte carried over garbage shifts all frames";
    // Nor does a drop that ends inside a frame leave the rest shifted.
    mStream->drop(10);  // 1920 bytes, of which 919 are left
    mStream.write(burst(0, counted(1001)));
    mStream.write(burst(0, counted(924)));
    EXPECT_EQ(8U, mStream.payload().size());
}

TEST_F(TunnelStreamTest, AProgrammeThatWasClosedLeavesTheNextNothing) {
    FakeBridge& bridge = connect();
    mStream.write(burst(0, {}));
    bridge.setPositionMs(1000);
    Bytes cut = burst(0, counted(2000));  // a second late: 192000 bytes are to be dropped
    cut.resize(1000);
    mStream.write(cut);
    mStream->close();
    bridge.takeCalls();
    mStream.write(burst(5000, counted(400)));
    EXPECT_EQ((Calls{"start", "pts 5000"}), bridge.takeCalls())
        << "its header was taken for payload";
    EXPECT_EQ(counted(400), mStream.payload());
    // Neither what a pause had kept.
    mStream.write(burst(5000, counted(400)));
    mStream->pause();
    mStream->close();
    mStream->open();
    EXPECT_EQ(Bytes(), mStream.payload());
}

TEST_F(TunnelStreamTest, ACallbackFromOutsideAWriteOpensTheStreamLikeAWrite) {
    const Bytes cut = counted(7);
    mStream->onBurstPayloadParsed(cut.data(), cut.size());
    EXPECT_EQ(counted(4), mStream.payload());
    mStream->flush();
    const Bytes whole = counted(8, 50);
    mStream->onBurstPayloadParsed(whole.data(), whole.size());
    EXPECT_EQ(whole, mStream.payload()) << "the flush has discarded the cut frame too";
    mStream.write(burst(0, counted(8, 70)));
    EXPECT_EQ(counted(8, 70), mStream.payload()) << "opened, and yet not registered";
}

TEST_F(TunnelStreamTest, NothingOpensAStreamThatIsRetired) {
    FakeBridge& bridge = connect();
    mStream->open();
    mStream->retire();
    mStream->close();
    bridge.takeCalls();
    const Bytes late = burst(0, counted(40));
    EXPECT_EQ(-ENODEV, mStream->open());
    mStream->openAndWrite(late.data(), late.size());
    EXPECT_FALSE(mStream->isOpened());
    EXPECT_EQ(Calls(), bridge.takeCalls());
    const sp<AudioStream> plain(
        new AudioStream(48000, AUDIO_FORMAT_PCM_16_BIT, 3, AUDIO_OUTPUT_FLAG_NONE, 100));
    plain->retire();
    EXPECT_EQ(0, plain->openAndWrite(late.data(), late.size()));
    EXPECT_FALSE(plain->isOpened());
}

TEST_F(TunnelStreamTest, SurvivesAbsurdSilenceAndDrops) {
    mStream->open();
    mStream->fill(1UL << 60);
    mStream->fill(11'200'000);  // more bytes than a signed count holds
    EXPECT_EQ(2U, mLog.count("W TunnelStream: No enough memory"));
    mStream->drop(~0UL);
    mStream.write(burst(0, counted(400)));
    EXPECT_EQ(Bytes(), mStream.payload());
    mStream->drop(0);
    mStream.write(burst(0, counted(400)));
    EXPECT_EQ(counted(400), mStream.payload());
    TestStream withoutRate(10, 0);
    withoutRate->fill(400);
    withoutRate->drop(400);
    TestStream withoutStorage(0);
    withoutStorage->fill(400);
}

// A stream whose small ring is full, with a writer inside a parser callback waiting for room.
class BlockedTunnelWrite : public TunnelStreamTest {
protected:
    BlockedTunnelWrite() {
        mSmall->setParameters("hw_av_sync=9");
        mSmall->open();
        mWriter = std::thread([this] { mSmall.write(burst(0, counted(1200))); });
        // All of the ring is out once: the writer fills it a second time, and waits.
        EXPECT_TRUE(eventually([this] { return hear() >= 100; }));
        std::this_thread::sleep_for(milliseconds(30));
    }
    // The same once the former write has returned.
    void writeAgain() {
        mWriter.join();
        mHeard = 0;
        mWriter = std::thread([this] { mSmall.write(burst(0, counted(1200))); });
        EXPECT_TRUE(eventually([this] { return hear() >= 100; }));
    }
    // Takes up to a ring's frames; all that came so far.
    size_t hear() {
        if (mSmall->isOpened()) {
            const auto out = makeBuffer(100);
            mSmall->process(out, mHeard < 100 ? 100 - mHeard : 100);
            mHeard += out->availableToRead();
        }
        return mHeard;
    }

    TestStream mSmall{100};
    std::thread mWriter;
    size_t mHeard = 0;
};

TEST_F(BlockedTunnelWrite, APauseHoldsUntilTheWriteGivesUpAndBeyond) {
    const auto waited = timeOf([this] {
        mSmall->pause();
        mWriter.join();
    });
    EXPECT_LT(waited, milliseconds(1000) + kNoWait);
    EXPECT_GE(waited, milliseconds(969)) << "a second since it began to wait";
    EXPECT_FALSE(mSmall->isOpened());
    EXPECT_EQ(100U, hear());
    EXPECT_EQ(1U, mLog.count("W audio_stream: write, It costs too long (1000 ms) to write"));
    EXPECT_EQ(1U, mLog.count("W audio_stream: write, some bytes (400) are missed"));
}

TEST_F(BlockedTunnelWrite, HeadersThatAPauseHoldsLeaveTheClockAlone) {
    FakeBridge& bridge = *FakeBridge::sLast;
    mSmall->flush();  // makes room for the rest
    mWriter.join();
    mWriter = std::thread([this] {
        Bytes programme = burst(0, counted(1200));
        append(programme, burst(20, counted(40), kFreeRun));
        append(programme, burst(40, counted(40)));
        mSmall.write(programme);
    });
    std::this_thread::sleep_for(milliseconds(30));
    bridge.takeCalls();
    mSmall->pause();
    mWriter.join();
    EXPECT_EQ((Calls{"pause"}), bridge.takeCalls()) << "the rest of the write started it again";
    mSmall->flush();
    mSmall.write(burst(60, counted(40)));
    EXPECT_EQ((Calls{"start", "pts 60"}), bridge.takeCalls());
}

TEST_F(BlockedTunnelWrite, ResumeOrOpenLetsItGoOnAtOnceWithAllItsPayload) {
    mSmall->pause();
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_FALSE(mSmall->isOpened());
    mSmall->resume();
    EXPECT_TRUE(within(milliseconds(5), [this] { return hear() == 300; }));
    // The mixer has a second again from there on.
    writeAgain();
    mSmall->pause();
    std::this_thread::sleep_for(milliseconds(700));
    mSmall->resume();
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_TRUE(within(milliseconds(5), [this] { return hear() == 300; }));
    writeAgain();
    mSmall->pause();
    mSmall->resume();
    mSmall->pause();
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_FALSE(mSmall->isOpened()) << "the resume was for the pause before";
    EXPECT_LT(timeOf([this] { mSmall->open(); }), kNoWait);
    EXPECT_TRUE(within(milliseconds(5), [this] { return hear() == 300; }));
    mWriter.join();
}

TEST_F(BlockedTunnelWrite, CloseFlushAndParametersComeThroughAndLeaveTheStreamUsable) {
    mSmall->setParameters("hw_av_sync=10");
    mSmall->setDownstreamLatency(20, 0);
    mSmall->setDownstreamLatencyOffset(5);
    mSmall->flush();
    mSmall->close();
    mWriter.join();
    EXPECT_EQ(0U, mLog.count("W audio_stream: write, It costs too long (1000 ms) to write"))
        << "none of these waits for the write";
    EXPECT_FALSE(mSmall->isOpened());
    mSmall.write(burst(0, counted(8, 33)));
    EXPECT_EQ(counted(8, 33), mSmall.payload());
}

TEST_F(BlockedTunnelWrite, SilenceEndsWithAPauseAFlushOrAClose) {
    mSmall->flush();
    mWriter.join();
    using Control = int (TunnelStream::*)();
    for (const Control end : {&TunnelStream::pause, &TunnelStream::flush, &TunnelStream::close}) {
        mSmall->open();
        mSmall->flush();
        mWriter = std::thread([this] { mSmall->fill(700); });
        std::this_thread::sleep_for(milliseconds(50));
        const milliseconds atMost(end == &TunnelStream::close ? 1000 : 0);  // for the mixer
        EXPECT_LT(timeOf([&] {
                      ((*mSmall.stream).*end)();
                      mWriter.join();
                  }),
                  atMost + kNoWait);
        mSmall->open();
        const auto out = makeBuffer(100);
        EXPECT_EQ(end == &TunnelStream::pause ? 100 : 0, mSmall->process(out, 100));
    }
    EXPECT_EQ(0U, mLog.count("W audio_stream: write, It costs too long (1000 ms) to write"));
}

TEST_F(TunnelStreamTest, AHeaderReachesTheClockBeforeAPauseOrAFlushOrNotAtAll) {
    FakeBridge& bridge = connect();
    bridge.setPositionMs(1000);
    mStream.write(burst(1000, {}));
    using Control = int (TunnelStream::*)();
    // Strikes while a header's decision is made, and is given time to come before its effect.
    const auto writeStruckBy = [&](Control control, const Bytes& bytes) {
        std::thread host;
        bridge.mOnGetSyncPts = [&] {
            host = std::thread([this, control] { ((*mStream.stream).*control)(); });
            bridge.mOnGetSyncPts = nullptr;
            std::this_thread::sleep_for(milliseconds(50));
        };
        mStream.write(bytes);
        host.join();
    };
    writeStruckBy(&TunnelStream::pause, burst(3000, {}));
    EXPECT_EQ("pause", bridge.takeCalls().back()) << "the clock of a paused stream runs on";
    mStream->open();
    writeStruckBy(&TunnelStream::flush, burst(3000, counted(400)));
    const Bytes left = mStream.payload();  // the flush may overtake the payload, but not cut it
    EXPECT_TRUE(left.empty() || left == counted(400));
    mStream.write(burst(1400, {}));
    EXPECT_EQ("pts 1400", bridge.takeCalls().back()) << "the start after the flush was used up";
    writeStruckBy(&TunnelStream::flush, burst(1400, counted(400)));  // leads by 400 ms
    EXPECT_EQ(Bytes(), mStream.payload()) << "silence from before the flush";
}

TEST_F(TunnelStreamTest, ControlThreadsBesideAWriterLeaveItPlaying) {
    std::atomic<bool> done{false};
    std::thread mixer([&] {
        const auto out = makeBuffer(4000);
        while (!done) {
            if (mStream->isOpened()) {
                mStream->process(out, 4000);
            }
            out->flush();
            std::this_thread::sleep_for(std::chrono::microseconds(10));
        }
    });
    std::thread control([&] {
        for (int i = 0; !done; ++i) {
            mStream->setParameters(i % 2 == 0 ? "hw_av_sync=1" : "hw_av_sync=2");
            mStream->setDownstreamLatency(static_cast<unsigned long>(i % 7), 0);
            mStream->setDownstreamLatencyOffset(i % 3);
            i % 5 == 0 ? mStream->flush() : mStream->pause();
            i % 11 == 0 ? mStream->close() : mStream->resume();
            std::this_thread::sleep_for(std::chrono::microseconds(1));
        }
    });
    for (uint64_t ptsMs = 0; ptsMs < 4000; ptsMs += 10) {
        mStream.write(burst(ptsMs, counted(1920), ptsMs % 500 < 100 ? kFreeRun : kAvSync));
    }
    done = true;
    control.join();
    mixer.join();
    mStream->flush();
    FakeBridge& bridge = connect(3);
    bridge.takeCalls();
    mStream.write(burst(5000, counted(1920, 7)));
    EXPECT_EQ(counted(1920, 7), mStream.payload()) << "no drop, silence or cut frame is left over";
    EXPECT_EQ("pts 5000", bridge.takeCalls().back());
}

}  // namespace

// In the place of the platform's: it makes the bridges that the tests script.
int AVSyncBridgeFactoryHalHidl::createHwSyncBridge(unsigned int kind, unsigned int hwSyncId,
                                                   sp<BridgeHalHidl>& bridge) {
    FakeBridge::sAsked = {kind, hwSyncId};
    if (FakeBridge::sRefusal == 0) {
        FakeBridge::sLast = new FakeBridge(hwSyncId);
        bridge = FakeBridge::sLast.get();
    }
    return FakeBridge::sRefusal;
}
