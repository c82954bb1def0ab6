#include "tools/audio/Handover.h"

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(Handover, AnotherRateComesAsStereoOf16Bits) {
    for (const uint32_t channelCount : {1u, 2u, 6u}) {
        const Handover handover(
            {.rateHz = 48000, .channelCount = channelCount, .fits16Bits = false}, 44100,
            {.isNative = false, .bufferFrames = 2000, .writeFrames = 0});
        EXPECT_EQ(STREAMPROXY_FORMAT_PCM_16_BIT, handover.config.format);
        EXPECT_EQ(STREAMPROXY_CHANNEL_MASK_STEREO, handover.config.channel_mask);
        EXPECT_FALSE(handover.isStaged());
        EXPECT_EQ(4u, handover.frameBytes());
    }
    const Handover native({.rateHz = 48000, .channelCount = 6, .fits16Bits = false}, 44100,
                          {.isNative = true, .bufferFrames = 2000, .writeFrames = 0});
    EXPECT_TRUE(native.deliversShort());
    EXPECT_EQ(24u, native.frameBytes());
    const Handover same({.rateHz = 44100, .channelCount = 6, .fits16Bits = false}, 44100,
                        {.isNative = false, .bufferFrames = 2000, .writeFrames = 0});
    EXPECT_EQ(0x3fu, same.config.channel_mask) << "the library itself takes the first two";
    const Handover many({.rateHz = 44100, .channelCount = 31, .fits16Bits = true}, 44100,
                        {.isNative = true, .bufferFrames = 2000, .writeFrames = 0});
    EXPECT_EQ(2u, many.channelCount) << "a mask has no room for more than 30";
}

TEST(Handover, TheBufferHoldsABlockAWriteAndWholeBlocksOfTheMix) {
    for (const uint32_t mixHz : {8000u, 44100u, 192000u}) {
        for (const uint32_t rateHz : {4000u, 44100u, 48000u, 768000u}) {
            const Handover handover({.rateHz = rateHz, .channelCount = 2, .fits16Bits = true},
                                    mixHz,
                                    {.isNative = false, .bufferFrames = 1, .writeFrames = 333});
            const int64_t block = blockFrames(mixHz);
            EXPECT_EQ(0, handover.bufferFrames % block) << rateHz << " to " << mixHz;
            EXPECT_LE(framesAtRate(block, mixHz, rateHz) + 333, handover.bufferFrames);
            EXPECT_LE(handover.delayFrames, handover.marginFrames);
            EXPECT_EQ(rateHz == mixHz, handover.delayFrames == 0);
        }
    }
}

TEST(Handover, FramesAtRateRoundsUpAndTakesYearsOfAudio) {
    EXPECT_EQ(1, framesAtRate(1, 48000, 44100));
    EXPECT_EQ(44100, framesAtRate(48000, 48000, 44100));
    EXPECT_EQ(int64_t{768000} * 4'000'000'000,
              framesAtRate(int64_t{4000} * 4'000'000'000, 4000, 768000));
}

}  // namespace
}  // namespace android
