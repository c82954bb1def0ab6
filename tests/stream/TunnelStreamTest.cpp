#include "stream/TunnelStream.h"

#include <gtest/gtest.h>

#include <thread>

#include "cutils/properties.h"
#include "tests/support/Eventually.h"
#include "tests/support/FakeBridge.h"
#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

using Bytes = std::vector<uint8_t>;
using Calls = std::vector<std::string>;

void appendBigEndian(Bytes& bytes, uint64_t value, int byteCount) {
    for (int shift = 8 * (byteCount - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

constexpr uint32_t kAvSync = 0x55550002;
constexpr uint32_t kFreeRun = 0x66660002;

/** A version 2 burst; its payload counts bytes from `first` on. */
Bytes burst(uint64_t ptsMs, size_t payloadByteCount, uint8_t first = 1, uint32_t magic = kAvSync) {
    Bytes bytes;
    appendBigEndian(bytes, magic, 4);
    appendBigEndian(bytes, payloadByteCount, 4);
    appendBigEndian(bytes, ptsMs * 1'000'000, 8);
    appendBigEndian(bytes, 20, 4);
    for (size_t i = 0; i < payloadByteCount; ++i) {
        bytes.push_back(static_cast<uint8_t>(first + i));
    }
    return bytes;
}

class TunnelStreamTest : public testing::Test {
protected:
    TunnelStreamTest() {
        FakeBridge::sRefusal = 0;
        FakeBridge::sLast.clear();
        EXPECT_EQ(OK, mStream->config(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO));
    }
    ~TunnelStreamTest() override {
        mStream->flush();
        mStream->close();
        EXPECT_EQ(1, mStream->getStrongCount()) << "something still refers to the closed stream";
        FakeBridge::sLast.clear();
    }

    static sp<TunnelStream> makeStream(size_t frameCount, uint32_t rateHz = 48000) {
        return new TunnelStream(rateHz, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                AUDIO_OUTPUT_FLAG_HW_AV_SYNC, static_cast<uint32_t>(frameCount));
    }
    FakeBridge& connect(int id = 5) {
        mStream->setParameters(("hw_av_sync=" + std::to_string(id)).c_str());
        return *FakeBridge::sLast;
    }
    void write(const Bytes& bytes) {
        if (!mStream->isOpened()) {
            mStream->open();
        }
        EXPECT_EQ(static_cast<int>(bytes.size()), mStream->write(bytes.data(), bytes.size()));
    }
    /** What reached the stream's buffer. */
    Bytes payload() {
        Bytes bytes(1 << 17);
        bytes.resize(static_cast<size_t>(std::max(0, mStream->read(bytes.data(), bytes.size()))));
        return bytes;
    }
    static Bytes tail(const Bytes& bytes) { return Bytes(bytes.begin() + 20, bytes.end()); }

    const sp<TunnelStream> mStream = makeStream(30'000);
};

TEST_F(TunnelStreamTest, AnchorsTheClockWithTheFirstBurstThenLeavesItAlone) {
    FakeBridge& bridge = connect();
    EXPECT_EQ((std::pair{128U, 5U}), FakeBridge::sAsked);
    bridge.setPositionMs(1000);
    write(burst(1000, 64));
    EXPECT_EQ((Calls{"latency 0", "start", "pts 1000"}), bridge.takeCalls());
    write(burst(1000, 64, 65));
    EXPECT_EQ(Calls(), bridge.takeCalls());
    EXPECT_EQ(tail(burst(0, 128)), payload());
}

TEST_F(TunnelStreamTest, PutsSilenceAheadOfABurstThatLeads) {
    FakeBridge& bridge = connect();
    write(burst(0, 4));
    bridge.setPositionMs(1000);
    LogCapture log;
    write(burst(1340, 8, 100));
    EXPECT_EQ(
        (std::vector<std::string>{"D TunnelStream: fill, filling silence 340 ms, 65280 bytes"}),
        log.messages());
    Bytes expected = tail(burst(0, 4));
    expected.resize(4 + 340 * 4 * 48);
    const Bytes last = tail(burst(0, 8, 100));
    expected.insert(expected.end(), last.begin(), last.end());
    EXPECT_EQ(expected, payload());
}

TEST_F(TunnelStreamTest, DropsTheOldestPayloadOfALateStreamAcrossRunsAndFlushes) {
    FakeBridge& bridge = connect();
    write(burst(0, 4));
    payload();
    bridge.setPositionMs(1110);
    LogCapture log;
    write(burst(1000, 10'000, 1));  // 110 ms are 21120 bytes
    write(burst(1110, 12'000, 9));
    const Bytes last = tail(burst(0, 12'000, 9));
    EXPECT_EQ(Bytes(last.begin() + 11'120, last.end()), payload());
    EXPECT_EQ((std::vector<std::string>{"D TunnelStream: drop, drop 110 ms",
                                        "W TunnelStream: onBurstPayloadParsed, drop bytes 10000",
                                        "W TunnelStream: onBurstPayloadParsed, drop bytes 11120"}),
              log.messages());
    // A new drop replaces what is pending, and a flush leaves it pending.
    mStream->drop(1000);
    mStream->drop(1);
    mStream->flush();
    write(burst(1110, 200, 1));
    EXPECT_EQ(Bytes(last.begin(), last.begin() + 8).size(), payload().size());
}

TEST_F(TunnelStreamTest, FollowsTheModesThatHeadersAnnounce) {
    write(burst(0, 4, 1, kFreeRun));
    FakeBridge& bridge = connect();
    write(burst(5000, 4, 5));
    EXPECT_EQ((Calls{"latency 0", "pts 5000"}), bridge.takeCalls())
        << "without a bridge free run is not entered; a bridge made while open is not started";
    write(burst(9000, 4, 9, kFreeRun));
    write(burst(9000, 4, 13, kFreeRun));
    EXPECT_EQ((Calls{"pause"}), bridge.takeCalls());
    write(burst(6000, 4, 17));
    EXPECT_EQ((Calls{"resume", "pts 6000"}), bridge.takeCalls());
    EXPECT_EQ(tail(burst(0, 20)), payload());
    LogCapture log;
    mStream->updateMode(HW_SYNC_MODE_INVALID);
    EXPECT_EQ((std::vector<std::string>{"E TunnelStream: updateMode, Unknown hw sync mode -1"}),
              log.messages());
}

TEST_F(TunnelStreamTest, ControlOperationsReachTheBridgeAndReArmThePolicy) {
    FakeBridge& bridge = connect();
    bridge.setPositionMs(1000);
    write(burst(1000, 4));
    bridge.takeCalls();
    EXPECT_EQ(OK, mStream->pause());
    EXPECT_EQ(OK, mStream->resume());
    EXPECT_FALSE(mStream->isOpened());
    write(burst(1000, 4));
    EXPECT_EQ((Calls{"pause", "resume", "start", "pts 1000"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->flush());
    write(burst(1001, 4));
    EXPECT_EQ((Calls{"pts 1001"}), bridge.takeCalls());
    mStream->flush();
    EXPECT_EQ(OK, mStream->close());
    EXPECT_EQ((Calls{"stop"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->open());
    EXPECT_EQ(OK, mStream->open());
    mStream->pause();
    EXPECT_EQ(OK, mStream->close());
    EXPECT_EQ((Calls{"start", "pause"}), bridge.takeCalls())
        << "a paused stream's close stops nothing";
}

TEST_F(TunnelStreamTest, TellsPolicyAndBridgeALatencyThatChanged) {
    LogCapture log;
    EXPECT_EQ(OK, mStream->setDownstreamLatency(30, 0));
    FakeBridge& bridge = connect();
    EXPECT_EQ((Calls{"latency 30"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->setDownstreamLatency(100, -50));
    EXPECT_EQ(OK, mStream->setDownstreamLatency(60, -10));  // the same sum
    EXPECT_EQ(-EINVAL, mStream->setDownstreamLatency(100, -150));
    EXPECT_EQ(-EINVAL, mStream->setDownstreamLatencyOffset(-61));
    EXPECT_EQ((Calls{"latency 50"}), bridge.takeCalls());
    EXPECT_EQ(OK, mStream->setDownstreamLatencyOffset(-20));
    EXPECT_EQ(OK, mStream->setLatency(60, -20, false));
    EXPECT_EQ((Calls{"latency 40", "latency 40"}), bridge.takeCalls());
    EXPECT_EQ(1U,
              log.count("E TunnelStream: setLatency, invalid latency 100 ms, or offset -150 ms"));
    EXPECT_EQ(1U, log.count("E TunnelStream: setLatency, invalid latency 60 ms, or offset -61 ms"));
    // The first decision waits until the timestamp has passed the latency.
    write(burst(39, 4));
    EXPECT_EQ((Calls{"start"}), bridge.takeCalls());
    write(burst(40, 4));
    EXPECT_EQ((Calls{"pts 40"}), bridge.takeCalls());
}

TEST_F(TunnelStreamTest, MakesABridgeForEachNewIdAndKeepsTheOldOneWhenRefused) {
    FakeBridge& first = connect(5);
    connect(5);
    EXPECT_EQ(&first, FakeBridge::sLast.get());
    const sp<FakeBridge> kept(&first);
    EXPECT_NE(&first, &connect(6));
    EXPECT_EQ(1, kept->getStrongCount());
    LogCapture log;
    FakeBridge::sRefusal = -19;
    connect(7);
    EXPECT_EQ((std::vector<std::string>{
                  "E TunnelStream: setParameters, fail to create av sync bridge -19"}),
              log.messages());
    FakeBridge::sLast->takeCalls();
    write(burst(10, 4));
    EXPECT_EQ((Calls{"start", "pts 10"}), FakeBridge::sLast->takeCalls());
    for (const char* ignored : {"", "other=1", "hw_av_sync=", "hw_av_sync=x"}) {
        EXPECT_EQ(OK, mStream->setParameters(ignored));
    }
    EXPECT_EQ(OK, mStream->setParameters(nullptr));
}

TEST_F(TunnelStreamTest, KeepsFramesWholeWhereverWritesAndBurstsCutThem) {
    // Bursts of 6 and 7 bytes over frames of 4, written 1, 2, 3, ... bytes at a time.
    Bytes stream = burst(0, 6, 1);
    for (const Bytes& next : {burst(0, 7, 7), burst(0, 3, 14)}) {
        stream.insert(stream.end(), next.begin(), next.end());
    }
    for (size_t step = 1; step < stream.size(); ++step) {
        for (size_t at = 0; at < stream.size(); at += step) {
            const size_t end = std::min(stream.size(), at + step);
            write(Bytes(stream.begin() + static_cast<ptrdiff_t>(at),
                        stream.begin() + static_cast<ptrdiff_t>(end)));
        }
        EXPECT_EQ(tail(burst(0, 16)), payload()) << "step " << step;
    }
    // What a flush cuts off is not glued to what comes later.
    write(burst(0, 6, 1));
    mStream->flush();
    write(burst(0, 4, 50));
    EXPECT_EQ(tail(burst(0, 4, 50)), payload());
}

TEST_F(TunnelStreamTest, SurvivesAbsurdSilenceAndDrops) {
    LogCapture log;
    mStream->open();
    mStream->fill(1UL << 60);
    mStream->fill(11'000'000);  // 2112000000 bytes still fit a signed count, 11.2 million do not
    mStream->fill(11'200'000);
    mStream->fill(0);
    mStream->drop(~0UL);
    EXPECT_EQ(2U, log.count("W TunnelStream: No enough memory"));
    mStream->flush();
    write(burst(0, 400));
    EXPECT_EQ(Bytes(), payload());
    mStream->drop(0);
    write(burst(0, 400));
    EXPECT_EQ(400U, payload().size());
    for (const auto& broken : {makeStream(10, 0), makeStream(0)}) {
        broken->open();
        broken->fill(400);
        broken->drop(400);
        const Bytes bytes = burst(0, 4);
        broken->write(bytes.data(), 20);
        broken->close();
    }
}

/** A stream whose small ring is full, with a writer inside a parser callback waiting for room. */
class BlockedTunnelWrite : public TunnelStreamTest {
protected:
    BlockedTunnelWrite() {
        EXPECT_EQ(OK, mSmall->config(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO));
        mSmall->setParameters("hw_av_sync=9");
        mSmall->open();
        mWriter = std::thread([this] {
            const Bytes bytes = burst(0, 1200);
            mWritten = mSmall->write(bytes.data(), bytes.size());
        });
        const auto peek = makeBuffer(100);
        // The ring is full once a pull gets all of it; 100 of 300 frames are out then.
        EXPECT_TRUE(eventually([&] {
            mHeard += drain<uint32_t>(*peek).size();
            mSmall->process(peek, 100 - mHeard);
            return mHeard + peek->availableToRead() >= 100;
        }));
        mHeard += drain<uint32_t>(*peek).size();
        std::this_thread::sleep_for(milliseconds(30));
    }
    ~BlockedTunnelWrite() override {
        if (mWriter.joinable()) {
            mWriter.join();
        }
        mSmall->close();
        EXPECT_EQ(1, mSmall->getStrongCount());
    }
    void consumeUntilWritten() {
        const auto out = makeBuffer(100);
        EXPECT_TRUE(eventually([&] {
            if (mSmall->isOpened()) {
                mSmall->process(out, 100);
            }
            mHeard += drain<uint32_t>(*out).size();
            return mWritten != 0;
        }));
        mSmall->process(out, 100);
        mHeard += drain<uint32_t>(*out).size();
    }

    const sp<TunnelStream> mSmall = makeStream(100);
    std::thread mWriter;
    std::atomic<int> mWritten{0};
    size_t mHeard = 0;
};

TEST_F(BlockedTunnelWrite, APauseLosesNoPayloadAndTheNextWritePlaysOn) {
    mSmall->pause();
    consumeUntilWritten();  // the mixer skips the stream until the write goes on
    EXPECT_EQ(1220, mWritten);
    EXPECT_EQ(300U, mHeard);
    mSmall->pause();
    const Bytes next = burst(0, 8);
    mSmall->open();
    EXPECT_EQ(28, mSmall->write(next.data(), next.size()));
    EXPECT_TRUE(mSmall->isOpened());
}

TEST_F(BlockedTunnelWrite, CloseFlushAndParametersComeThroughAndLeaveTheStreamUsable) {
    const auto start = steady_clock::now();
    mSmall->setParameters("hw_av_sync=10");
    mSmall->setDownstreamLatency(20, 0);
    mSmall->setDownstreamLatencyOffset(5);
    mSmall->flush();
    EXPECT_LT(steady_clock::now() - start, milliseconds(500)) << "none of these waits for a write";
    mSmall->close();
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(4));
    mWriter.join();
    EXPECT_EQ(1220, mWritten);
    mSmall->open();
    mSmall->flush();
    const Bytes next = burst(0, 8, 33);
    EXPECT_EQ(28, mSmall->write(next.data(), next.size()));
    Bytes back(100);
    back.resize(static_cast<size_t>(mSmall->read(back.data(), back.size())));
    EXPECT_EQ(tail(burst(0, 8, 33)), back);
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
        }
    });
    std::thread control([&] {
        for (int i = 0; !done; ++i) {
            mStream->setParameters(i % 2 == 0 ? "hw_av_sync=1" : "hw_av_sync=2");
            mStream->setDownstreamLatency(static_cast<unsigned long>(i % 7), 0);
            mStream->setDownstreamLatencyOffset(i % 3);
            i % 5 == 0 ? mStream->flush() : mStream->pause();
            i % 11 == 0 ? mStream->close() : mStream->resume();
            mStream->getLatency();
        }
    });
    for (uint64_t ptsMs = 0; ptsMs < 4000; ptsMs += 10) {
        const Bytes bytes = burst(ptsMs, 1920, 1, ptsMs % 500 < 100 ? kFreeRun : kAvSync);
        mStream->open();
        EXPECT_EQ(1940, mStream->write(bytes.data(), bytes.size()));
    }
    done = true;
    control.join();
    mixer.join();
}

}  // namespace
