#include "stream/AudioStream.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "tests/support/Dump.h"
#include "tests/support/Eventually.h"
#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualTime.h"

using namespace android;
using std::chrono::milliseconds;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr audio_format_t k32 = AUDIO_FORMAT_PCM_32_BIT;
constexpr uint32_t kStereo = AUDIO_CHANNEL_OUT_STEREO;

sp<AudioStream> makeStream(size_t frameCount, uint32_t rateHz = 48000, audio_format_t format = k16,
                           uint32_t mask = kStereo) {
    return new AudioStream(rateHz, format, mask, AUDIO_OUTPUT_FLAG_NONE, frameCount);
}

// Configured for 48 kHz, 16 bits, stereo.
sp<AudioStream> makeMixedStream(size_t frameCount) {
    const auto stream = makeStream(frameCount);
    EXPECT_EQ(OK, stream->config(48000, k16, kStereo));
    return stream;
}

int writeFrames(AudioStream& stream, uint32_t first, size_t frameCount) {
    return stream.write(numberedFrames(first, frameCount).data(), frameCount * 4);
}

TEST(AudioStream, TakesWholeFramesAndReportsTheRest) {
    LogCapture log;
    const auto stream = makeStream(2000);
    std::vector<uint8_t> bytes(2000);
    EXPECT_EQ(-ENODEV, stream->read(bytes.data(), 4));
    EXPECT_EQ(-ENODEV, stream->process(makeBuffer(4), 4));
    EXPECT_EQ(-ENODEV, stream->setVolume(1, 1));
    EXPECT_EQ(0, stream->write(nullptr, 8));
    EXPECT_EQ(0, stream->write(bytes.data(), 0));
    EXPECT_FALSE(stream->isOpened());
    EXPECT_EQ(1000, stream->write(bytes.data(), 1001));
    EXPECT_TRUE(stream->isOpened()) << "a write opens";
    EXPECT_EQ(0, stream->write(bytes.data(), 3));
    EXPECT_EQ(-EINVAL, stream->read(bytes.data(), 3));
    EXPECT_EQ(1000, stream->read(bytes.data(), 2000));
    EXPECT_EQ(0, stream->read(bytes.data(), 2000));
    EXPECT_EQ(1U, log.count("W audio_stream: process, stream is not opened yet"));
    EXPECT_EQ(1U, log.count("W audio_stream: write, some bytes (1) are missed"));
    stream->pause();
    EXPECT_EQ(OK, stream->resume());
    EXPECT_FALSE(stream->isOpened());
    stream->open();
    EXPECT_LT(timeOf([&stream] { EXPECT_EQ(OK, stream->close()); }), kNoWait);
    EXPECT_FALSE(stream->isOpened());
    EXPECT_EQ(-ENOSYS, stream->setDownstreamLatency(1, 0));
    EXPECT_EQ(-ENOSYS, stream->setDownstreamLatencyOffset(0));
}

TEST(AudioStream, GivesUpAfterASecondWithWhatFitted) {
    LogCapture log;
    const auto stream = makeStream(10);
    const auto expectASecond = [](std::chrono::nanoseconds waited) {
        EXPECT_GE(waited, milliseconds(1000));
        EXPECT_LT(waited, milliseconds(1000) + kNoWait);
    };
    expectASecond(timeOf([&stream] { EXPECT_EQ(40, writeFrames(*stream, 0, 25)); }));
    EXPECT_EQ(
        (std::vector<std::string>{"W audio_stream: write, It costs too long (1000 ms) to write",
                                  "W audio_stream: write, some bytes (60) are missed"}),
        log.messages());
    // Nobody consumes: close waits its second, then discards.
    expectASecond(timeOf([&stream] { stream->close(); }));
    EXPECT_FALSE(stream->isOpened());
    EXPECT_EQ(40, writeFrames(*stream, 0, 10));
}

TEST(AudioStream, TheConsumerWakesABlockedWriterAndAClosingStream) {
    const auto stream = makeMixedStream(10);
    writeFrames(*stream, 0, 10);
    std::thread writer([&stream] { EXPECT_EQ(40, writeFrames(*stream, 10, 10)); });
    std::this_thread::sleep_for(milliseconds(30));
    const auto out = makeBuffer(20);
    while (out->availableToRead() < 20) {
        stream->process(out, 20 - out->availableToRead());
    }
    EXPECT_LT(timeOf([&writer] { writer.join(); }), kNoWait);
    EXPECT_EQ(numberedFrames(0, 20), drain<uint32_t>(*out));

    writeFrames(*stream, 0, 10);
    std::thread closer([&stream] { stream->close(); });
    std::this_thread::sleep_for(milliseconds(30));
    stream->process(out, 1);
    EXPECT_LT(timeOf([&closer] { closer.join(); }), kNoWait);
}

TEST(AudioStream, FlushBesideWriterAndConsumerTearsAndLosesNothingWrittenLater) {
    const auto stream = makeMixedStream(64);
    stream->open();
    std::atomic<bool> written{false};
    std::thread writer([&] {
        for (uint32_t next = 1; next < 60'000;) {
            next += static_cast<uint32_t>(writeFrames(*stream, next, 1 + next % 90)) / 4;
        }
        written = true;
    });
    std::thread flusher([&] {
        while (!written) {
            stream->flush();
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    uint32_t last = 0;
    size_t wrong = 0;
    for (bool done = false; !done;) {
        done = written;  // one more look once all is written
        const auto out = makeBuffer(48);
        stream->process(out, 48);
        for (const uint32_t frame : drain<uint32_t>(*out)) {
            wrong += frame > last ? 0 : 1;  // twice, out of order, or wiped
            last = frame;
        }
    }
    flusher.join();
    writer.join();
    EXPECT_EQ(0U, wrong);
    EXPECT_GT(last, 0U);
}

TEST(AudioStream, FlushAndCloseEmptyTheWholeChain) {
    using Control = int (AudioStream::*)();
    for (const uint32_t rateHz : {8000U, 44100U, 48000U, 96000U}) {
        for (const Control discard : {&AudioStream::flush, &AudioStream::close}) {
            const auto stream = makeStream(2000, rateHz, k32, AUDIO_CHANNEL_OUT_MONO);
            ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
            const std::vector<int32_t> loud(2000, 1 << 26);
            stream->write(loud.data(), loud.size() * 4);
            EXPECT_GT(stream->process(makeBuffer(960), 960), 0);
            std::thread mixer([&] {  // the close waits for it
                std::this_thread::sleep_for(milliseconds(20));
                stream->process(makeBuffer(100), 100);
            });
            ((*stream).*discard)();
            mixer.join();
            const std::vector<int32_t> silent(2000, 0);
            stream->write(silent.data(), silent.size() * 4);
            const auto out = makeBuffer(960);
            EXPECT_GT(stream->process(out, 960), 0);
            const auto heard = drain<int16_t>(*out);
            EXPECT_EQ(std::vector<int16_t>(heard.size(), 0), heard) << rateHz;
        }
    }
}

TEST(AudioStream, ACloseEndsABlockedWriteAndLeavesNothingToTheNextProgramme) {
    const LogCapture log;
    const auto stream = makeMixedStream(64);
    for (int round = 0; round < 100; ++round) {
        stream->open();
        std::atomic<bool> isClosing{true};
        std::atomic<bool> isHeard{false};
        std::thread writer([&] {
            // Room comes and goes, so that the close strikes the write anywhere.
            EXPECT_LE(writeFrames(*stream, 1, 100'000), 400'000);
        });
        std::thread mixer([&] {
            while (isClosing) {
                isHeard = stream->process(makeBuffer(48), 48) > 0 || isHeard;
                std::this_thread::sleep_for(std::chrono::microseconds(1));
            }
        });
        while (!isHeard) {  // the write has begun
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::nanoseconds(370 * round));
        EXPECT_LT(timeOf([&] {
                      stream->close();
                      writer.join();
                  }),
                  kNoWait);
        isClosing = false;
        mixer.join();
        stream->open();
        EXPECT_EQ(0, stream->process(makeBuffer(48), 48));
    }
}

TEST(AudioStream, AWriteDuringACloseIsKeptWholeOrLeavesItClosed) {
    static std::atomic<bool> sIsHeld;
    static std::atomic<bool> sIsPulling;
    sIsHeld = true;
    sIsPulling = false;
    const auto stream = makeMixedStream(64);
    writeFrames(*stream, 1, 10);
    const LogCapture log;
    // The warning of a short pull comes under the chain's lock, which the close needs at its end.
    __android_log_set_logger([](const __android_log_message*) {
        sIsPulling = true;
        while (sIsHeld) {
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    std::thread mixer([&stream] { stream->process(makeBuffer(48), 48); });
    EXPECT_TRUE(eventually([] { return sIsPulling.load(); }));
    std::thread closer([&stream] { stream->close(); });
    EXPECT_TRUE(eventually([&stream] { return !stream->isOpened(); }));
    int written = 0;
    std::thread writer(
        [&stream, &written] { written = stream->openAndWrite(numberedFrames(20, 10).data(), 40); });
    std::this_thread::sleep_for(milliseconds(50));
    sIsHeld = false;
    for (std::thread* const thread : {&mixer, &closer, &writer}) {
        thread->join();
    }
    EXPECT_EQ(written == 40, stream->isOpened());
    EXPECT_EQ(written == 40 ? 10 : -ENODEV, stream->process(makeBuffer(48), 48))
        << "open, and yet empty: it would stop the others";
}

TEST(AudioStream, RefusesTargetsOutOfReachAndKeepsItsChain) {
    LogCapture log;
    const auto stream = makeMixedStream(100);
    EXPECT_EQ(-EINVAL, stream->config(48000, k16, 1));
    EXPECT_EQ(-EINVAL, stream->config(1000, k16, kStereo));
    EXPECT_EQ((std::vector<std::string>{
                  "W audio_stream: config, do not support configuration, sample rate 48000, format "
                  "1,  channel 1",
                  "W audio_stream: config, that is for a stream of sample rate 48000, format 1,  "
                  "channel 3"}),
              (std::vector<std::string>{log.messages()[0], log.messages()[1]}));
    writeFrames(*stream, 1, 10);
    const auto out = makeBuffer(10);
    EXPECT_EQ(10, stream->process(out, 10));
    EXPECT_EQ(numberedFrames(1, 10), drain<uint32_t>(*out));
    // The chain's frames are 16-bit: they never reach a buffer of another frame size.
    writeFrames(*stream, 1, 10);
    EXPECT_EQ(0, stream->process(makeBuffer(10, k32), 10));
    EXPECT_EQ(-EINVAL, stream->process(nullptr, 10));
}

TEST(AudioStream, VolumeReachesTheLastStageAndANewChainStartsAtUnity) {
    LogCapture log;
    const auto stream = makeMixedStream(4);
    EXPECT_EQ(-EINVAL, stream->setVolume(2, 1));
    EXPECT_EQ(OK, stream->setVolume(0.5F, 0.0F));
    const auto hear = [&stream] {
        const std::vector<int16_t> loud(8, 1000);
        stream->write(loud.data(), 16);
        const auto out = makeBuffer(4);
        stream->process(out, 4);
        return drain<int16_t>(*out);
    };
    hear();  // the ramp is as long as the buffer
    EXPECT_EQ((std::vector<int16_t>{500, 0, 500, 0, 500, 0, 500, 0}), hear());
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    EXPECT_EQ(std::vector<int16_t>(8, 1000), hear());
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    EXPECT_EQ(1U, log.count("W audio_stream: config, the volume (0.500, 0.000) is lost with the "
                            "former chain; it is 1.0"));
    EXPECT_EQ(1U, log.messages().size());
}

TEST(AudioStream, ReportsItsBufferAsLatencyAndDumpsItsConfiguration) {
    EXPECT_EQ(0U, makeStream(100, 0)->getLatency());
    EXPECT_EQ(45000U, makeStream(2000, 44100)->getLatency());
    const sp<AudioStream> stream(
        new AudioStream(48000, k32, kStereo, static_cast<audio_output_flags_t>(0x2), 2000));
    ASSERT_EQ(OK, stream->config(44100, k16, kStereo));
    stream->open();
    std::ostringstream address;
    address << static_cast<void*>(stream.get());
    EXPECT_EQ("AudioStream:     " + address.str() +
                  "\nActive:          1\nSample Rate:     48000\nFormat:          0x3\n"
                  "Flags:           0x2\nChannel Mask:    0x3\nDst Sample Rate: 44100\n"
                  "Dst Format:      0x1\nDst Channel Mask:0x3\n",
              textOf([&stream](int fd) { EXPECT_EQ(OK, stream->dump(fd)); }));
    EXPECT_EQ(OK, stream->dump(-1));
}

}  // namespace
