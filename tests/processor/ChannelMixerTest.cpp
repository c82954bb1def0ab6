#include "processor/ChannelMixer.h"

#include <gtest/gtest.h>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

sp<ChannelMixer> makeMixer(uint32_t src, uint32_t dst, audio_format_t format) {
    return new ChannelMixer(src, dst, format);
}

TEST(ChannelMixer, KeepsTheFirstChannelsAndFillsWithSilence) {
    for (const audio_format_t format : {AUDIO_FORMAT_PCM_8_BIT, AUDIO_FORMAT_PCM_16_BIT,
                                        AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_PCM_32_BIT}) {
        for (const auto& [src, dst] :
             {std::pair{1U, 3U}, {3U, 1U}, {0x3FU, 3U}, {3U, 7U}, {0x80000003U, 3U}}) {
            const auto mixer = makeMixer(src, dst, format);
            // Both rings wrap in the middle of the pass.
            const auto in = makeBuffer(11, format, src, 8);
            const auto out = makeBuffer(13, format, dst, 7);
            mixer->setInputBuffer(in);
            mixer->setOutputBuffer(out);
            std::vector<uint8_t> source(10 * in->mFrameSize);
            std::vector<uint8_t> expected(10 * out->mFrameSize);
            for (size_t i = 0; i < source.size(); ++i) {
                source[i] = static_cast<uint8_t>(i + 1);
                const size_t at = i % in->mFrameSize;
                if (at < out->mFrameSize) {
                    expected[i / in->mFrameSize * out->mFrameSize + at] = source[i];
                }
            }
            in->write(source.data(), 10);
            EXPECT_EQ(10, mixer->process(12));
            EXPECT_EQ(expected, drain<uint8_t>(*out));
            EXPECT_EQ(0U, in->availableToRead());
        }
    }
}

TEST(ChannelMixer, RefusesConfigurationsWithoutChannelsOrSamples) {
    LogCapture log;
    uint32_t frame = 0;
    for (const auto& mixer :
         {makeMixer(0x40000003, 3, AUDIO_FORMAT_PCM_16_BIT),
          makeMixer(3, 0, AUDIO_FORMAT_PCM_16_BIT), makeMixer(1, 3, AUDIO_FORMAT_DEFAULT)}) {
        mixer->setInputBuffer(makeBuffer(4));
        mixer->setOutputBuffer(makeBuffer(4));
        EXPECT_EQ(-ENODEV, mixer->process(1));
        EXPECT_EQ(-ENODEV, mixer->adjust(&frame, 1, makeBuffer(4)));
    }
    const auto mixer = makeMixer(1, 3, AUDIO_FORMAT_PCM_16_BIT);
    EXPECT_EQ(-EINVAL, mixer->adjust(&frame, 0, &frame));
    EXPECT_EQ(-EINVAL, mixer->adjust(nullptr, 2, &frame));
    EXPECT_EQ(-ENODEV, mixer->process(1));
    EXPECT_EQ(4U, log.count("E audio_channelmixer: process, output buffer or input buffer is not "
                            "ready, or invalid config"));
}

}  // namespace
