#include "stream/ConversionChain.h"

#include <gtest/gtest.h>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr audio_format_t k32 = AUDIO_FORMAT_PCM_32_BIT;

TEST(ConversionChain, HasTheStagesThatTheTargetNeedsInOrder) {
    struct {
        PcmConfig source;
        PcmConfig target;
        const char* stages;
    } const cases[] = {
        {{48000, k16, 3}, {48000, k16, 3}, "mixer "},
        {{48000, k32, 3}, {48000, k16, 3}, "mixer "},
        {{48000, k16, 3}, {44100, k16, 3}, "resampler mixer "},
        {{48000, k32, 3}, {44100, k16, 3}, "mixer resampler mixer "},
        {{48000, k16, 1}, {48000, k32, 3}, "channel_mixer mixer "},
        {{48000, k32, 0x3F}, {44100, k32, 3}, "channel_mixer mixer resampler mixer "},
    };
    for (const auto& c : cases) {
        const auto input = makeBuffer(2000, c.source.format, c.source.channelMask);
        const ConversionChain chain = ConversionChain::build(c.source, c.target, input, 2000);
        ASSERT_NE(nullptr, chain.volumeMixer.get());
        std::string stages;
        for (const auto& stage : chain.processers) {
            stages += std::string(stage->name().c_str()) + " ";
        }
        EXPECT_EQ(c.stages, stages);

        // It runs from end to end: silence in, silence out, and no more than was asked for.
        std::vector<uint8_t> silence(2000 * input->mFrameSize);
        input->write(silence.data(), 2000);
        const auto out = makeBuffer(1000, c.target.format);
        chain.volumeMixer->setOutputBuffer(out);
        ssize_t frameCount = 800;
        for (const auto& stage : chain.processers) {
            frameCount = stage->process(static_cast<size_t>(frameCount));
        }
        // A stage in front of a resampler that lowers the rate is asked for output frames, so the
        // resampler gets too few: 800 in, 735 and a little look-ahead out.
        EXPECT_GE(frameCount, 730) << c.stages;
        EXPECT_LE(frameCount, 800) << c.stages;
    }
}

TEST(ConversionChain, RefusesWhatNoStageBridges) {
    LogCapture log;
    struct {
        PcmConfig source;
        PcmConfig target;
        uint32_t bufferFrameCount;
    } const cases[] = {
        {{48000, AUDIO_FORMAT_PCM_FLOAT, 3}, {48000, k16, 3}, 100},
        {{48000, k16, 3}, {48000, AUDIO_FORMAT_PCM_8_BIT, 3}, 100},
        {{48000, k16, 3}, {48000, k16, 0x3F}, 100},
        {{0, k16, 3}, {48000, k16, 3}, 100},
        {{48000, k16, 3}, {0, k16, 3}, 100},
        {{48000, k16, 0x40000003}, {48000, k16, 3}, 100},
        {{3000, k16, 3}, {48000, k16, 3}, 100},
        {{44100, k16, 3}, {48000, k16, 3}, 0},  // no storage between the stages
    };
    for (const auto& c : cases) {
        const ConversionChain chain =
            ConversionChain::build(c.source, c.target, makeBuffer(10), c.bufferFrameCount);
        EXPECT_EQ(nullptr, chain.volumeMixer.get());
        EXPECT_TRUE(chain.processers.isEmpty());
    }
}

}  // namespace
