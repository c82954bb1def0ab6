// The converter call by call. That no block comes short is shown at the stage that pulls through
// it, tests/processor/ResamplerTest.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "ResamplerFixture.h"

namespace android {
namespace {

constexpr RatePair kAllKinds[] = {{48000, 44100}, {44100, 48000},  {96000, 48000}, {32000, 48000},
                                  {8000, 48000},  {48000, 8000},   {48000, 48000}, {192000, 44100},
                                  {44101, 48000}, {768000, 44100}, {8000, 44101}};

size_t inputFor(size_t outFrames, RatePair rates) {
    return (outFrames * rates.in + rates.out - 1) / rates.out;
}

Pcm makeNoise(size_t sampleCount) {
    std::minstd_rand random(11);
    Pcm noise(sampleCount);
    for (int16_t& sample : noise) {
        sample = static_cast<int16_t>(static_cast<int>(random() >> 8 & 0xffff) - 32768);
    }
    return noise;
}

TEST(ResamplerFlow, EveryChannelEqualsItsOwnMonoConversion) {
    constexpr uint32_t kChannels = 8;
    for (const RatePair rates : kAllKinds) {
        const size_t frames = inputFor(700, rates);
        const Pcm in = makeNoise(frames * kChannels);
        const Pcm out = TestConverter(rates, kChannels).convertAll(in);
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            Pcm alone(frames);
            for (size_t i = 0; i < frames; ++i) {
                alone[i] = in[i * kChannels + channel];
            }
            const Pcm expected = TestConverter(rates).convertAll(alone);
            ASSERT_EQ(out.size(), expected.size() * kChannels);
            for (size_t i = 0; i < expected.size(); ++i) {
                ASSERT_EQ(expected[i], out[i * kChannels + channel]) << "frame " << i;
            }
        }
    }
}

TEST(ResamplerFlow, TheFirstCallYieldsAllItsInputIsWorthAndTheReserveBearsFourCutPulls) {
    for (const RatePair rates : kAllKinds) {
        SCOPED_TRACE(testing::Message() << rates.in << " to " << rates.out);
        const size_t need = inputFor(960, rates);
        Pcm out;
        EXPECT_EQ(960U, TestConverter(rates).convert(Pcm(need), 0, need, out, 960).produced);
        TestConverter converter(rates);
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(1U, converter.convert(Pcm(1), 0, 1, out, 1).produced) << "pull " << i;
        }
        EXPECT_EQ(960U, converter.convert(Pcm(need), 0, need, out, 960).produced);
    }
}

TEST(ResamplerFlow, PhaseIsExactAfterTenMillionFramesAndAfterAReset) {
    // Every whole second the output meets the input's grid again: a signal that starts then must
    // come out as from a new converter, to the bit.
    for (const RatePair rates : {RatePair{44100, 48000}, RatePair{44101, 48000}}) {
        TestConverter converter(rates);
        const Pcm silence(rates.in);
        for (size_t i = 0; i < 210; ++i) {
            Pcm ignored;
            const auto counts = converter.convert(silence, 0, rates.in, ignored, rates.out);
            ASSERT_EQ(rates.in, counts.consumed);
            ASSERT_EQ(rates.out, counts.produced);
        }
        const Pcm noise = makeNoise(4413);
        const Pcm expected = TestConverter(rates).convertAll(noise);
        EXPECT_EQ(expected, converter.convertAll(noise));
        converter.handle()->reset(converter.handle());
        EXPECT_EQ(expected, converter.convertAll(noise));
    }
}

TEST(ResamplerFlow, WhatIsNotSupportedIsRefused) {
    resampler_itfe* handle = nullptr;
    const auto create = [&handle](uint32_t in, uint32_t out, uint32_t channels, uint32_t quality) {
        release_resampler(handle);
        const int status = create_resampler(in, out, channels, quality, nullptr, &handle);
        EXPECT_EQ(status == 0, handle != nullptr);
        return status;
    };
    EXPECT_EQ(0, create(4000, 768000, 1, 0));
    EXPECT_EQ(0, create(768000, 4000, 8, 10));
    for (const uint32_t rateHz : {3999U, 768001U}) {
        EXPECT_EQ(-EINVAL, create(rateHz, 48000, 2, 4));
        EXPECT_EQ(-EINVAL, create(48000, rateHz, 2, 4));
    }
    EXPECT_EQ(-EINVAL, create(44100, 48000, 0, 4));
    EXPECT_EQ(-EINVAL, create(44100, 48000, 9, 4));
    EXPECT_EQ(-EINVAL, create(44100, 48000, 2, 11));
    TestConverter converter({44100, 48000});
    size_t inCount = 1, outCount = 1;
    int16_t sample = 0;
    EXPECT_EQ(-EINVAL, converter.handle()->resample_from_input(converter.handle(), nullptr,
                                                               &inCount, &sample, &outCount));
    EXPECT_EQ(0U, inCount + outCount);
}

}  // namespace
}  // namespace android
