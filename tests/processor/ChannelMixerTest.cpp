#include "processor/ChannelMixer.h"

#include <gtest/gtest.h>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr uint32_t kSixChannels = AUDIO_CHANNEL_OUT_5POINT1;
constexpr uint32_t kStereo = AUDIO_CHANNEL_OUT_STEREO;

TEST(ChannelMixer, KeepsTheFirstChannelsAndFillsWithSilence) {
    struct {
        uint32_t src;
        uint32_t dst;
    } const cases[] = {{1, 3}, {3, 1}, {kSixChannels, 3}, {3, 7}, {0x80000003, 3}};
    for (const audio_format_t format : {AUDIO_FORMAT_PCM_8_BIT, AUDIO_FORMAT_PCM_16_BIT,
                                        AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_PCM_32_BIT}) {
        for (const auto& c : cases) {
            const size_t srcChannels = audio_channel_count_from_out_mask(c.src);
            const size_t dstChannels = audio_channel_count_from_out_mask(c.dst);
            const size_t sampleSize = audio_bytes_per_sample(format);
            const sp<ChannelMixer> mixer(new ChannelMixer(c.src, c.dst, format));
            // Both rings wrap in the middle of the pass.
            const auto in = makeBuffer(11, format, c.src, 8);
            const auto out = makeBuffer(13, format, c.dst, 7);
            mixer->setInputBuffer(in);
            mixer->setOutputBuffer(out);
            std::vector<uint8_t> source(10 * srcChannels * sampleSize);
            for (size_t i = 0; i < source.size(); ++i) {
                source[i] = static_cast<uint8_t>(i + 1);
            }
            std::vector<uint8_t> expected(10 * dstChannels * sampleSize);
            for (size_t frame = 0; frame < 10; ++frame) {
                std::copy_n(&source[frame * srcChannels * sampleSize],
                            std::min(srcChannels, dstChannels) * sampleSize,
                            &expected[frame * dstChannels * sampleSize]);
            }
            in->write(source.data(), 10);
            EXPECT_EQ(10, mixer->process(12));
            EXPECT_EQ(expected, drain<uint8_t>(*out));
            EXPECT_EQ(0U, in->availableToRead());
        }
    }
}

TEST(ChannelMixer, RefusesConfigurationsWithoutChannelsOrSamples) {
    struct {
        uint32_t src;
        uint32_t dst;
        audio_format_t format;
    } const cases[] = {{0x40000003, kStereo, AUDIO_FORMAT_PCM_16_BIT},
                       {kStereo, 0, AUDIO_FORMAT_PCM_16_BIT},
                       {1, kStereo, AUDIO_FORMAT_DEFAULT}};
    for (const auto& c : cases) {
        LogCapture log;
        const sp<ChannelMixer> mixer(new ChannelMixer(c.src, c.dst, c.format));
        mixer->setInputBuffer(makeBuffer(4));
        mixer->setOutputBuffer(makeBuffer(4));
        EXPECT_EQ(-ENODEV, mixer->process(1));
        uint32_t frame = 0;
        EXPECT_EQ(-ENODEV, mixer->adjust(&frame, 1, makeBuffer(4)));
        EXPECT_EQ(2U, log.messages().size());
    }
    LogCapture log;
    const sp<ChannelMixer> mixer(new ChannelMixer(1, 3, AUDIO_FORMAT_PCM_16_BIT));
    uint32_t frame = 0;
    EXPECT_EQ(-EINVAL, mixer->adjust(&frame, 0, &frame));
    EXPECT_EQ(-EINVAL, mixer->adjust(nullptr, 2, &frame));
    EXPECT_EQ(-EINVAL, mixer->adjust(&frame, 2, sp<FrameBuffer>()));
    EXPECT_EQ(0, mixer->adjust(&frame, 0, makeBuffer(1)));
    EXPECT_EQ(-ENODEV, mixer->process(1));
    EXPECT_EQ((std::vector<std::string>{"E audio_channelmixer: process, output buffer or input "
                                        "buffer is not ready, or invalid config"}),
              log.messages());
}

}  // namespace
