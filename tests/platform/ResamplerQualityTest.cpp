// The converter as a listener hears it: level, noise, aliases and images, latency.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "ResamplerFixture.h"
#include "Spectrum.h"

namespace android {
namespace {

std::string pairName(RatePair rates) {
    return std::to_string(rates.in) + "to" + std::to_string(rates.out);
}

// Half a second of a tone, converted; measured where the filter has settled.
Tone measurePair(RatePair rates, double frequencyHz) {
    const Pcm tone = makeTone(frequencyHz, rates.in, rates.in / 2);
    const size_t settled = 100 * (static_cast<size_t>(rates.out) / rates.lower() + 1);
    return measureTone(TestConverter(rates).convertAll(tone), frequencyHz, rates.out, settled);
}

class ResamplerQuality : public testing::TestWithParam<RatePair> {};

TEST_P(ResamplerQuality, KeepsTonesCleanAndLevelWithinItsLatency) {
    const RatePair rates = GetParam();
    const double nyquistHz = rates.lower() / 2.0;
    const Tone speech = measurePair(rates, 997);
    const Tone high = measurePair(rates, 0.8 * nyquistHz);
    const Tone edge = measurePair(rates, 0.9 * nyquistHz);
    // 200 slow frames a cycle: the lag is known without doubt.
    const double latency = 200 * measurePair(rates, rates.lower() / 200.0).lagCycles;
    std::printf(
        "%-14s SNR %.2f dB at 997 Hz, %.2f dB at 0.8 Nyquist; level %+.4f dB at 0.8, "
        "%+.3f dB at 0.9; latency %.3f slow frames\n",
        pairName(rates).c_str(), speech.snrDb, high.snrDb, high.levelDb, edge.levelDb, latency);
    EXPECT_GE(speech.snrDb, 93);
    EXPECT_NEAR(0, speech.levelDb, 0.001);
    EXPECT_GE(high.snrDb, 90);
    EXPECT_NEAR(0, high.levelDb, 0.02);
    EXPECT_GE(edge.levelDb, rates.in < rates.out ? -0.77 : -2.3);
    EXPECT_LE(latency, 40);
    TestConverter converter(rates);
    const double reported = 1e-9 * converter.handle()->delay_ns(converter.handle());
    EXPECT_NEAR(latency, reported * rates.lower(), 0.01);
}

constexpr RatePair kCommonPairs[] = {
    {48000, 44100}, {44100, 48000}, {96000, 48000}, {32000, 48000}, {8000, 48000}};

INSTANTIATE_TEST_SUITE_P(CommonPairs, ResamplerQuality, testing::ValuesIn(kCommonPairs),
                         [](const auto& tested) { return pairName(tested.param); });
// Pairs without a table of every phase.
INSTANTIATE_TEST_SUITE_P(Interpolated, ResamplerQuality,
                         testing::Values(RatePair{44101, 48000}, RatePair{48000, 47999},
                                         RatePair{8000, 44101}, RatePair{96001, 44100}),
                         [](const auto& tested) { return pairName(tested.param); });

TEST(ResamplerFilter, SuppressesImagesAndAliasesBeyondTheTransitionBand) {
    for (const RatePair rates : kCommonPairs) {
        const Spurs worst = worstSpurs(
            rates, [rates](const Pcm& in) { return TestConverter(rates).convertAll(in); });
        std::printf("%-14s highest line beside a kept tone %.1f dB, of one above the band %.1f\n",
                    pairName(rates).c_str(), worst.keptDb, worst.foldedDb);
        EXPECT_LE(worst.keptDb, -80) << pairName(rates);
        EXPECT_LE(worst.foldedDb, -80) << pairName(rates);
    }
}

TEST(ResamplerFilter, OvershootOfAFullScaleEdgeIsLimitedNotWrapped) {
    Pcm square(4800);
    for (size_t i = 0; i < square.size(); ++i) {
        square[i] = i / 400 % 2 == 0 ? int16_t{32767} : int16_t{-32768};
    }
    const Pcm out = TestConverter({48000, 96000}).convertAll(square);
    EXPECT_EQ(32767, *std::max_element(out.begin(), out.end()));
    EXPECT_EQ(-32768, *std::min_element(out.begin(), out.end()));
    // An edge takes a few frames; a wrapped overshoot would be an edge more.
    for (size_t i = 1; i < out.size(); ++i) {
        ASSERT_LE(std::abs(out[i] - out[i - 1]), 48000) << "frame " << i;
    }
}

}  // namespace
}  // namespace android
