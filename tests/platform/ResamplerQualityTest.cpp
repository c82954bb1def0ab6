/** The converter as a listener hears it: level, noise, aliases and images, latency. */
#include <fftw3.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "ResamplerFixture.h"

namespace android {
namespace {

std::string pairName(RatePair rates) {
    return std::to_string(rates.in) + "to" + std::to_string(rates.out);
}

/** `seconds` of a tone, converted; measured where the filter has settled. */
Tone measurePair(RatePair rates, double frequencyHz, double seconds = 1) {
    TestConverter converter(rates);
    const Pcm tone = makeTone(frequencyHz, rates.in, static_cast<size_t>(rates.in * seconds));
    const size_t settled = 100 * (static_cast<size_t>(rates.out) / rates.lower() + 1);
    return measureTone(converter.convertAll(tone, rates), frequencyHz, rates.out, settled);
}

/** Finds the highest line of a spectrum that is not the tone itself. */
class SpurMeter {
public:
    SpurMeter() {
        for (size_t i = 0; i < kFrames; ++i) {  // Blackman-Harris: side lobes at -92 dB
            const double x = 2 * std::numbers::pi * static_cast<double>(i) / kFrames;
            mWindow[i] = 0.35875 - 0.48829 * cos(x) + 0.14128 * cos(2 * x) - 0.01168 * cos(3 * x);
        }
    }

    /** In dB of makeTone's level. `toneHz` 0: nothing is left out. */
    double measure(const Pcm& signal, double toneHz, uint32_t rateHz) {
        for (size_t i = 0; i < kFrames; ++i) {
            mSamples[i] = mWindow[i] * signal[signal.size() - kFrames + i];
        }
        fftw_execute(mPlan.get());
        const double toneBin = toneHz * kFrames / rateHz;
        double highest = 0;
        for (size_t bin = 0; bin <= kFrames / 2; ++bin) {
            if (toneHz == 0 || std::abs(static_cast<double>(bin) - toneBin) > kLobeBins) {
                highest = std::max(highest, std::hypot(mLines[bin][0], mLines[bin][1]));
            }
        }
        const double toneLine = kToneAmplitude * 0.35875 * kFrames / 2;
        return 20 * std::log10(highest / toneLine + 1e-12);
    }

    static constexpr size_t kFrames = 8192;

private:
    static constexpr double kLobeBins = 5;

    struct Destroy {
        void operator()(fftw_plan plan) const { fftw_destroy_plan(plan); }
    };
    std::vector<double> mWindow = std::vector<double>(kFrames);
    std::vector<double> mSamples = std::vector<double>(kFrames);
    std::vector<fftw_complex> mLines = std::vector<fftw_complex>(kFrames / 2 + 1);
    std::unique_ptr<fftw_plan_s, Destroy> mPlan{fftw_plan_dft_r2c_1d(
        static_cast<int>(kFrames), mSamples.data(), mLines.data(), FFTW_ESTIMATE)};
};

double measureSpur(SpurMeter& meter, RatePair rates, double frequencyHz, bool isToneKept) {
    TestConverter converter(rates);
    const size_t frames = (SpurMeter::kFrames + 400) * rates.in / rates.out + 400;
    const Pcm out = converter.convertAll(makeTone(frequencyHz, rates.in, frames), rates);
    return meter.measure(out, isToneKept ? frequencyHz : 0, rates.out);
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
        "%-14s SNR %.2f dB at 997 Hz, %.2f dB at 0.8 Nyquist; level %+.4f dB at 0.8, %+.3f dB at "
        "0.9; latency %.3f slow frames\n",
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

TEST_P(ResamplerQuality, SuppressesImagesAndAliasesBeyondTheTransitionBand) {
    const RatePair rates = GetParam();
    const double nyquistHz = rates.lower() / 2.0;
    SpurMeter meter;
    double worstKept = -300;
    for (double relative = 0.02; relative < 0.975; relative += 0.019) {
        worstKept = std::max(worstKept, measureSpur(meter, rates, relative * nyquistHz, true));
    }
    double worstFolded = -300;
    for (double hz = 1.01 * nyquistHz; hz < rates.in / 2.0; hz += 0.0123 * nyquistHz) {
        worstFolded = std::max(worstFolded, measureSpur(meter, rates, hz, false));
    }
    std::printf("%-14s highest line beside a kept tone %.1f dB", pairName(rates).c_str(),
                worstKept);
    if (worstFolded > -300) {
        std::printf(", of a tone above the band %.1f dB", worstFolded);
    }
    std::printf("\n");
    EXPECT_LE(worstKept, -80);
    EXPECT_LE(worstFolded, -80);
}

INSTANTIATE_TEST_SUITE_P(CommonPairs, ResamplerQuality,
                         testing::Values(RatePair{48000, 44100}, RatePair{44100, 48000},
                                         RatePair{96000, 48000}, RatePair{32000, 48000},
                                         RatePair{8000, 48000}),
                         [](const auto& tested) { return pairName(tested.param); });

TEST(ResamplerFilter, InterpolatedPairsAreAsCleanAsTabledOnes) {
    constexpr RatePair kPairs[] = {{44101, 48000}, {47999, 48000}, {48000, 47999}, {8000, 44101},
                                   {96001, 44100}, {767999, 4001}, {4001, 767999}};
    for (const RatePair rates : kPairs) {
        const double highHz = 0.4 * rates.lower();
        const Tone speech = measurePair(rates, 997, 0.5);
        const Tone high = measurePair(rates, highHz, 0.5);
        std::printf("%-14s SNR %.2f dB at 997 Hz, %.2f dB at 0.8 Nyquist\n",
                    pairName(rates).c_str(), speech.snrDb, high.snrDb);
        EXPECT_GE(speech.snrDb, 93) << pairName(rates);
        EXPECT_GE(high.snrDb, 90) << pairName(rates);
        EXPECT_NEAR(0, high.levelDb, 0.02) << pairName(rates);
    }
}

TEST(ResamplerFilter, ConstantStaysTheSameConstantInEveryPhase) {
    constexpr RatePair kPairs[] = {{48000, 44100}, {44100, 48000}, {8000, 48000},
                                   {44101, 48000}, {96000, 48000}, {48000, 48000}};
    for (const RatePair rates : kPairs) {
        TestConverter converter(rates);
        const Pcm out = converter.convertAll(Pcm(8000, 12345), rates);
        const size_t settled = 100 * (static_cast<size_t>(rates.out) / rates.lower() + 1);
        ASSERT_GT(out.size(), settled);
        EXPECT_TRUE(std::all_of(out.begin() + static_cast<ptrdiff_t>(settled), out.end(),
                                [](int16_t sample) { return sample == 12345; }))
            << pairName(rates);
    }
}

TEST(ResamplerFilter, OvershootOfAFullScaleEdgeIsLimitedNotWrapped) {
    Pcm square(4800);
    for (size_t i = 0; i < square.size(); ++i) {
        square[i] = i / 400 % 2 == 0 ? int16_t{32767} : int16_t{-32768};
    }
    constexpr RatePair kRates{48000, 96000};
    TestConverter converter(kRates);
    const Pcm out = converter.convertAll(square, kRates);
    EXPECT_EQ(32767, *std::max_element(out.begin(), out.end()));
    EXPECT_EQ(-32768, *std::min_element(out.begin(), out.end()));
    // An edge takes a few frames; a wrapped overshoot would be an edge more.
    size_t jumps = 0;
    for (size_t i = 1; i < out.size(); ++i) {
        jumps += std::abs(out[i] - out[i - 1]) > 48000 ? 1u : 0u;
    }
    EXPECT_EQ(0u, jumps);
}

}  // namespace
}  // namespace android
