#include "stream/ConversionChain.h"

#include <gtest/gtest.h>

#include <cstring>

#include "processor/ChannelMixer.h"
#include "processor/Resampler.h"
#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr audio_format_t k32 = AUDIO_FORMAT_PCM_32_BIT;

TEST(ConversionChain, HasTheStagesThatTheTargetNeedsInOrder) {
    const struct {
        PcmConfig source;
        PcmConfig target;
        const char* stages;
    } cases[] = {
        {{48000, k16, 3}, {48000, k16, 3}, "mixer "},
        {{48000, k32, 3}, {48000, k16, 3}, "mixer "},
        {{48000, k16, 3}, {44100, k16, 3}, "resampler mixer "},
        {{48000, k32, 3}, {44100, k16, 3}, "mixer resampler mixer "},
        {{48000, k32, 1}, {48000, k16, 3}, "channel_mixer mixer "},
        {{48000, k32, 0x3F}, {44100, k32, 3}, "channel_mixer mixer resampler mixer "},
    };
    for (const auto& c : cases) {
        const auto input = makeBuffer(2000, c.source.format, c.source.channelMask);
        const ConversionChain chain = ConversionChain::build(c.source, c.target, input, 2000);
        ASSERT_NE(nullptr, chain.volumeMixer.get());
        // The value 2 in Q0.15, left alone where the source is mono.
        std::vector<uint8_t> bytes(2000 * input->mFrameSize);
        const size_t sampleSize = audio_bytes_per_sample(c.source.format);
        for (size_t i = 0; i < bytes.size(); i += sampleSize) {
            bytes[i + (sampleSize == 4 ? 1 : 0)] = sampleSize == 4 ? 0x20 : 2;
        }
        input->write(bytes.data(), 2000);
        const auto out = makeBuffer(1000, c.target.format);
        chain.volumeMixer->setOutputBuffer(out);
        // What other streams have mixed already: the last stage adds to it.
        void* region = nullptr;
        size_t regionFrameCount = 1000;
        out->obtainWriteBuffer(&region, regionFrameCount);
        memset(region, 1, regionFrameCount * out->mFrameSize);
        ssize_t frameCount = 800;
        std::string stages;
        for (const auto& stage : chain.processers) {
            stages += std::string(stage->name().c_str()) + " ";
            frameCount = stage->process(static_cast<size_t>(frameCount));
        }
        EXPECT_EQ(c.stages, stages);
        // A stage in front of a resampler that lowers the rate is asked for output frames, so the
        // resampler gets too few: 800 in, 735 and a little look-ahead out.
        EXPECT_GE(frameCount, 730) << c.stages;
        EXPECT_LE(frameCount, 800) << c.stages;
        const std::vector<uint8_t> heard = drain<uint8_t>(*out);
        EXPECT_EQ(c.target.format == k16 ? 3 : 0x21,
                  heard.at(700 * out->mFrameSize + (c.target.format == k16 ? 0 : 1)))
            << c.stages;
    }
}

TEST(ConversionChain, RefusesWhatNoStageBridges) {
    LogCapture log;
    const struct {
        PcmConfig source;
        PcmConfig target;
        uint32_t bufferFrameCount = 100;
    } cases[] = {
        {{48000, AUDIO_FORMAT_PCM_FLOAT, 3}, {48000, k16, 3}},
        {{48000, k16, 3}, {48000, AUDIO_FORMAT_PCM_8_BIT, 3}},
        {{48000, k16, 3}, {48000, k16, 0x3F}},
        {{0, k16, 3}, {48000, k16, 3}},
        {{48000, k16, 3}, {0, k16, 3}},
        {{48000, k16, 0x40000003}, {48000, k16, 3}},
        {{3000, k16, 3}, {48000, k16, 3}},
        {{44100, k16, 3}, {48000, k16, 3}, 0},  // no storage between the stages
    };
    for (const auto& c : cases) {
        const ConversionChain chain =
            ConversionChain::build(c.source, c.target, makeBuffer(10), c.bufferFrameCount);
        EXPECT_EQ(nullptr, chain.volumeMixer.get());
        EXPECT_TRUE(chain.processers.isEmpty());
    }
}

TEST(ConversionChain, AStageEndsItsPassWhereABufferRefuses) {
    LogCapture log;
    const sp<AudioProcesser> stages[] = {
        new ChannelMixer(AUDIO_CHANNEL_OUT_MONO, AUDIO_CHANNEL_OUT_STEREO, k16),
        new VolumeMixer(k16, AUDIO_CHANNEL_OUT_STEREO, k16, AUDIO_CHANNEL_OUT_STEREO, 10,
                        VOLUMER_TYPE_PROCESS),
        new Resampler(44100, 48000, k16, AUDIO_CHANNEL_OUT_STEREO)};
    for (const auto& stage : stages) {
        const auto in = makeBuffer(64);
        const auto out = makeBuffer(64);
        in->write(numberedFrames(1, 32).data(), 32);
        stage->setInputBuffer(in);
        EXPECT_EQ(-ENODEV, stage->process(8)) << "without an output";
        stage->setInputBuffer(nullptr);
        stage->setOutputBuffer(out);
        EXPECT_EQ(-ENODEV, stage->process(8)) << "without an input";
        stage->setInputBuffer(in);
        for (const auto refused : {FRAME_BUFFER_OBTAIN_READ, FRAME_BUFFER_RELEASE_READ}) {
            in->disallow(refused);
            EXPECT_GE(8, stage->process(8));
            in->allow(FRAME_BUFFER_ALL);
            EXPECT_EQ(32U, in->availableToRead()) << stage->name().c_str();
        }
        EXPECT_EQ(8, stage->process(8)) << stage->name().c_str();
    }
}

}  // namespace
