// The converter as a listener hears it: level, noise, aliases and images, latency.
#include <fftw3.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "ResamplerFixture.h"

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

// The highest line of the end of a signal, in dB of makeTone's level, the tone's own left out.
double highestLine(const Pcm& signal, double toneHz, uint32_t rateHz) {
    constexpr int kFrames = 8192;
    static std::vector<double> sSamples(kFrames);
    static std::vector<fftw_complex> sLines(kFrames / 2 + 1);
    static const fftw_plan sPlan =
        fftw_plan_dft_r2c_1d(kFrames, sSamples.data(), sLines.data(), FFTW_ESTIMATE);
    for (size_t i = 0; i < kFrames; ++i) {  // Blackman-Harris: side lobes at -92 dB
        const double x = 2 * std::numbers::pi * static_cast<double>(i) / kFrames;
        const double window =
            0.35875 - 0.48829 * cos(x) + 0.14128 * cos(2 * x) - 0.01168 * cos(3 * x);
        sSamples[i] = window * signal[signal.size() - kFrames + i];
    }
    fftw_execute(sPlan);
    double highest = 1e-3;
    for (size_t bin = 0; bin < sLines.size(); ++bin) {
        if (std::abs(static_cast<double>(bin) - toneHz * kFrames / rateHz) > 5) {
            highest = std::max(highest, std::hypot(sLines[bin][0], sLines[bin][1]));
        }
    }
    return 20 * std::log10(highest / (kToneAmplitude * 0.35875 * kFrames / 2));
}

double measureSpur(RatePair rates, double frequencyHz, bool isToneKept) {
    const size_t frames = size_t{8192 + 400} * rates.in / rates.out + 400;
    const Pcm out = TestConverter(rates).convertAll(makeTone(frequencyHz, rates.in, frames));
    return highestLine(out, isToneKept ? frequencyHz : -rates.out, rates.out);
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
        const double nyquistHz = rates.lower() / 2.0;
        double worstKept = -300;
        for (double relative = 0.02; relative < 0.975; relative += 0.019) {
            worstKept = std::max(worstKept, measureSpur(rates, relative * nyquistHz, true));
        }
        double worstFolded = -300;  // stays so where no tone above the band exists
        for (double hz = 1.01 * nyquistHz; hz < rates.in / 2.0; hz += 0.0123 * nyquistHz) {
            worstFolded = std::max(worstFolded, measureSpur(rates, hz, false));
        }
        std::printf("%-14s highest line beside a kept tone %.1f dB, of one above the band %.1f\n",
                    pairName(rates).c_str(), worstKept, worstFolded);
        EXPECT_LE(worstKept, -80) << pairName(rates);
        EXPECT_LE(worstFolded, -80) << pairName(rates);
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
