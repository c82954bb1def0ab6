#include "stream/AudioStream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Pipe.h"

using namespace android;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr audio_format_t k32 = AUDIO_FORMAT_PCM_32_BIT;
constexpr uint32_t kStereo = AUDIO_CHANNEL_OUT_STEREO;

sp<AudioStream> makeStream(size_t frameCount, uint32_t rateHz = 48000, audio_format_t format = k16,
                           uint32_t mask = kStereo) {
    return new AudioStream(rateHz, format, mask, AUDIO_OUTPUT_FLAG_NONE, frameCount);
}

int writeFrames(AudioStream& stream, uint32_t first, size_t frameCount) {
    return stream.write(numberedFrames(first, frameCount).data(), frameCount * 4);
}

TEST(AudioStream, TakesWholeFramesAndReportsTheRest) {
    LogCapture log;
    const auto stream = makeStream(2000);
    EXPECT_EQ(0, stream->write(nullptr, 8));
    EXPECT_EQ(0, stream->write(&log, 0));
    EXPECT_FALSE(stream->isOpened());
    const std::vector<uint8_t> bytes(1001);
    EXPECT_EQ(1000, stream->write(bytes.data(), 1001));
    EXPECT_EQ(0, stream->write(bytes.data(), 3));
    EXPECT_EQ((std::vector<std::string>{"W audio_stream: write, some bytes (1) are missed",
                                        "W audio_stream: write, some bytes (3) are missed"}),
              log.messages());
    std::vector<uint8_t> back(2000);
    EXPECT_EQ(-EINVAL, stream->read(back.data(), 3));
    EXPECT_EQ(1000, stream->read(back.data(), 2000));
    EXPECT_EQ(0, stream->read(back.data(), 2000));
}

TEST(AudioStream, OpensWithAWriteAndClosesWithoutWaitingWhenEmpty) {
    LogCapture log;
    const auto stream = makeStream(100);
    uint32_t frame = 0;
    EXPECT_EQ(-ENODEV, stream->read(&frame, 4));
    EXPECT_EQ(-ENODEV, stream->process(makeBuffer(4), 4));
    writeFrames(*stream, 0, 1);
    EXPECT_TRUE(stream->isOpened());
    stream->pause();
    EXPECT_EQ(OK, stream->resume());
    EXPECT_FALSE(stream->isOpened());
    EXPECT_EQ(OK, stream->flush());
    const auto start = steady_clock::now();
    stream->open();
    EXPECT_EQ(OK, stream->close());
    EXPECT_LT(steady_clock::now() - start, milliseconds(500));
    EXPECT_FALSE(stream->isOpened());
    EXPECT_EQ((std::vector<std::string>{"W audio_stream: read, stream is not opened yet",
                                        "W audio_stream: process, stream is not opened yet"}),
              log.messages());
    EXPECT_EQ(-ENOSYS, stream->setDownstreamLatency(1, 0));
    EXPECT_EQ(-ENOSYS, stream->setDownstreamLatencyOffset(0));
    EXPECT_EQ(OK, stream->setParameters(nullptr));
    EXPECT_EQ(-ENODEV, stream->setVolume(1, 1));
}

TEST(AudioStream, GivesUpAfterASecondWithWhatFitted) {
    LogCapture log;
    const auto stream = makeStream(10);
    const auto start = steady_clock::now();
    EXPECT_EQ(40, writeFrames(*stream, 0, 25));
    const auto blocked = steady_clock::now() - start;
    EXPECT_GE(blocked, milliseconds(999));
    EXPECT_LT(blocked, milliseconds(1900));
    EXPECT_EQ(
        (std::vector<std::string>{"W audio_stream: write, It costs too long (1000 ms) to write",
                                  "W audio_stream: write, some bytes (60) are missed"}),
        log.messages());
    // Nobody consumes: close waits its second, then discards.
    const auto closing = steady_clock::now();
    stream->close();
    EXPECT_GE(steady_clock::now() - closing, milliseconds(999));
    EXPECT_EQ(40, writeFrames(*stream, 0, 10));
}

TEST(AudioStream, TheConsumerWakesABlockedWriterAndAClosingStream) {
    const auto stream = makeStream(10);
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    writeFrames(*stream, 0, 10);
    std::thread writer([&stream] { EXPECT_EQ(40, writeFrames(*stream, 10, 10)); });
    std::this_thread::sleep_for(milliseconds(30));
    const auto out = makeBuffer(20);
    while (out->availableToRead() < 20) {
        stream->process(out, 20 - out->availableToRead());
    }
    writer.join();
    EXPECT_EQ(numberedFrames(0, 20), drain<uint32_t>(*out));

    writeFrames(*stream, 0, 10);
    const auto start = steady_clock::now();
    std::thread closer([&stream] { stream->close(); });
    std::this_thread::sleep_for(milliseconds(30));
    stream->process(out, 1);
    closer.join();
    EXPECT_LT(steady_clock::now() - start, milliseconds(700));
}

TEST(AudioStream, FlushBesideWriterAndConsumerTearsAndLosesNothingWrittenLater) {
    const auto stream = makeStream(64);
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    stream->open();
    constexpr uint32_t kEnd = 60'000;
    std::atomic<bool> written{false};
    std::thread writer([&] {
        for (uint32_t next = 1; next < kEnd;) {
            next += static_cast<uint32_t>(writeFrames(*stream, next, 1 + next % 90)) / 4;
        }
        written = true;
    });
    std::thread flusher([&] {
        while (!written) {
            stream->flush();
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    uint32_t last = 0;
    size_t heard = 0;
    for (bool done = false; !done;) {
        done = written;  // one more look once all is written
        const auto out = makeBuffer(48);
        stream->process(out, 48);
        for (const uint32_t frame : drain<uint32_t>(*out)) {
            ASSERT_GT(frame, last) << "a frame twice, out of order, or wiped";
            last = frame;
            ++heard;
        }
    }
    flusher.join();
    writer.join();
    EXPECT_GT(heard, 0U);
}

TEST(AudioStream, ConvertsMonoThirtyTwoBitToStereoSixteen) {
    const auto stream = makeStream(100, 48000, k32, 1);
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    const int32_t samples[] = {1000 << 12, -5 << 12, 1 << 30};
    stream->write(samples, sizeof(samples));
    const auto out = makeBuffer(8);
    EXPECT_EQ(3, stream->process(out, 8));
    EXPECT_EQ((std::vector<int16_t>{1000, 0, -5, 0, 32767, 0}), drain<int16_t>(*out));
}

TEST(AudioStream, RefusesTargetsOutOfReachAndKeepsItsChain) {
    LogCapture log;
    const auto stream = makeStream(100);
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
    EXPECT_EQ(-EINVAL, stream->config(48000, k16, 1));
    EXPECT_EQ(-EINVAL, stream->config(48000, AUDIO_FORMAT_PCM_FLOAT, kStereo));
    EXPECT_EQ(-EINVAL, stream->config(0, k16, kStereo));
    EXPECT_EQ(-EINVAL, stream->config(1000, k16, kStereo));
    EXPECT_EQ(
        "W audio_stream: config, do not support configuration, sample rate 48000, format 1,  "
        "channel 1",
        log.messages().at(0));
    EXPECT_EQ(4U, log.messages().size());
    writeFrames(*stream, 1, 10);
    const auto out = makeBuffer(10);
    EXPECT_EQ(10, stream->process(out, 10));
    EXPECT_EQ(numberedFrames(1, 10), drain<uint32_t>(*out));
    // The chain's frames are 16-bit: they never reach a buffer of another frame size.
    writeFrames(*stream, 1, 10);
    EXPECT_EQ(0, stream->process(makeBuffer(10, k32), 10));
    EXPECT_EQ(-EINVAL, stream->process(nullptr, 10));
    for (const auto& broken :
         {makeStream(100, 0), makeStream(100, 48000, k16, 0x40000001),
          makeStream(100, 48000, k16, 0), makeStream(100, 48000, AUDIO_FORMAT_DEFAULT)}) {
        EXPECT_EQ(-EINVAL, broken->config(48000, k16, kStereo));
    }
    EXPECT_EQ(0U, makeStream(100, 0)->getLatency());
}

TEST(AudioStream, VolumeReachesTheLastStageAndANewChainStartsAtUnity) {
    const auto stream = makeStream(4);
    ASSERT_EQ(OK, stream->config(48000, k16, kStereo));
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
}

TEST(AudioStream, ReportsItsBufferAsLatencyAndDumpsItsConfiguration) {
    EXPECT_EQ(41000U, makeStream(2000, 48000)->getLatency());
    EXPECT_EQ(45000U, makeStream(2000, 44100)->getLatency());
    const sp<AudioStream> stream(
        new AudioStream(48000, k32, kStereo, static_cast<audio_output_flags_t>(0x2), 2000));
    ASSERT_EQ(OK, stream->config(44100, k16, kStereo));
    stream->open();
    char address[32];
    snprintf(address, sizeof(address), "%p", static_cast<void*>(stream.get()));
    Pipe pipe;
    EXPECT_EQ(OK, stream->dump(pipe.writeEnd()));
    EXPECT_EQ("AudioStream:     " + std::string(address) +
                  "\nActive:          1\nSample Rate:     48000\nFormat:          0x3\n"
                  "Flags:           0x2\nChannel Mask:    0x3\nDst Sample Rate: 44100\n"
                  "Dst Format:      0x1\nDst Channel Mask:0x3\n",
              pipe.text());
    EXPECT_EQ(OK, stream->dump(-1));
}

}  // namespace
