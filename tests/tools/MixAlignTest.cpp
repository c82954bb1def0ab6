#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <random>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr double kFullScale = 2147483648.0;
constexpr int kRatesHz[] = {8000, 16000, 22050, 32000, 44100, 48000, 96000, 192000};
constexpr size_t kRateCount = std::size(kRatesHz);

/** Tones of random frequencies and phases, in the band that every rate carries. */
struct Chord {
    struct Tone {
        double frequencyHz;
        double phase;
    };
    std::vector<Tone> tones;

    double at(double timeSec) const {
        double sum = 0;
        for (const Tone& tone : tones) {
            sum += std::sin(2 * M_PI * tone.frequencyHz * timeSec + tone.phase);
        }
        return sum;
    }
};

/** One chord for each rate, no two with a tone in common: a mix of all can be taken apart. */
std::vector<Chord> chords() {
    std::mt19937 random(1);
    std::vector<int> slots(72);
    for (size_t i = 0; i < slots.size(); ++i) {
        slots[i] = static_cast<int>(i);
    }
    std::shuffle(slots.begin(), slots.end(), random);
    std::vector<Chord> result(kRateCount);
    for (size_t i = 0; i < slots.size(); ++i) {
        result[i % kRateCount].tones.push_back(
            {.frequencyHz = 200.0 + 40 * slots[i],
             .phase = std::uniform_real_distribution<double>(0, 2 * M_PI)(random)});
    }
    return result;
}

Audio chordAudio(const Chord& chord, int rateHz, int64_t frameCount) {
    Audio audio{.rateHz = rateHz, .channelCount = 1, .samples = {}};
    for (int64_t frame = 0; frame < frameCount; ++frame) {
        const double sample = 0.01 * chord.at(static_cast<double>(frame) / rateHz);
        audio.samples.push_back(static_cast<int32_t>(kFullScale * sample));
    }
    return audio;
}

/**
 * By how much the chord is late in the audio: where its
 * cross-correlation with the chord is highest, to the microsecond.
 */
double lateMs(const Audio& audio, const Chord& chord) {
    const double lengthSec = 0.4;
    const auto frameCount = static_cast<int64_t>(lengthSec * audio.rateHz);
    const auto firstFrame = static_cast<int64_t>(0.1 * audio.rateHz);
    std::vector<std::complex<double>> spectrum;  // cross-spectrum at the chord's tones
    for (const Chord::Tone& tone : chord.tones) {
        std::complex<double> sum;
        for (int64_t i = 0; i < frameCount; ++i) {
            const auto position = static_cast<double>(i) / static_cast<double>(frameCount);
            const double window = 1 - std::cos(2 * M_PI * position);
            const double timeSec = static_cast<double>(firstFrame + i) / audio.rateHz;
            const size_t index = static_cast<size_t>((firstFrame + i) * audio.channelCount);
            sum += window * audio.samples.at(index) *
                   std::polar(1.0, -2 * M_PI * tone.frequencyHz * timeSec - tone.phase + M_PI / 2);
        }
        spectrum.push_back(sum);
    }
    double best = -1e300;
    int bestUs = 0;
    for (int lagUs = -10000; lagUs <= 10000; ++lagUs) {
        std::complex<double> correlation;
        for (size_t i = 0; i < spectrum.size(); ++i) {
            correlation +=
                spectrum[i] * std::polar(1.0, 2 * M_PI * chord.tones[i].frequencyHz * lagUs * 1e-6);
        }
        if (correlation.real() > best) {
            best = correlation.real();
            bestUs = lagUs;
        }
    }
    return bestUs / 1000.0;
}

TEST(MixAlignment, EveryRateIsHeardInStepWithEveryOther) {
    const ScratchFolder folder;
    const std::vector<Chord> parts = chords();
    std::vector<std::string> inputs;
    for (size_t i = 0; i < kRateCount; ++i) {
        inputs.push_back(folder / std::to_string(kRatesHz[i]) + ".wav");
        // One is the longest, by less than a frame of the others.
        const int64_t frameCount = kRatesHz[i] * 6 / 10 + (kRatesHz[i] == 22050 ? 1 : 0);
        writeAudio(inputs.back(), kWav16, chordAudio(parts[i], kRatesHz[i], frameCount));
    }
    for (const int mixHz : kRatesHz) {
        // A gain makes the pre-roll another one.
        for (const char* gain : {"", "@gain=0.9"}) {
            std::vector<std::string> arguments = inputs;
            arguments[3] += gain;
            arguments.insert(arguments.end(),
                             {"--rate", std::to_string(mixHz), "-o", folder / "mix.wav"});
            ToolRun::mixWell(arguments);
            const Audio mix = readAudio(folder / "mix.wav");
            EXPECT_EQ((int64_t{13231} * mixHz + 22049) / 22050, mix.frameCount()) << mixHz;
            for (size_t i = 0; i < kRateCount; ++i) {
                const double late = lateMs(mix, parts[i]);
                EXPECT_LE(std::abs(late), 0.05) << kRatesHz[i] << " to " << mixHz << gain;
                if (std::getenv("STREAMPROXY_SHOW") != nullptr) {
                    printf("%d to %d%s: %.3f ms\n", kRatesHz[i], mixHz, gain, late);
                }
            }
        }
    }
}

TEST(MixAlignment, TheSameRecordingAtTwoRatesAddsUp) {
    const ScratchFolder folder;
    const Chord chord = chords()[0];
    writeAudio(folder / "a.wav", kWav16, chordAudio(chord, 44100, 44100));
    writeAudio(folder / "b.wav", kWav16, chordAudio(chord, 48000, 48000));
    // What starts later is late by that much, whatever its rate.
    ToolRun::mixWell({folder / "a.wav@start=250ms", folder / "b.wav@start=250ms", "--rate", "48000",
                      "-o", folder / "mix.wav"});
    const Audio mix = readAudio(folder / "mix.wav");
    ASSERT_EQ(60000, mix.frameCount());
    // Away from the ends, where the filter rings.
    double worst = 0;
    for (int64_t frame = 12500; frame < 59500; ++frame) {
        const double timeSec = static_cast<double>(frame - 12000) / 48000;
        const double sample = mix.samples[static_cast<size_t>(frame) * 2] / kFullScale;
        worst = std::max(worst, std::abs(sample - 0.02 * chord.at(timeSec)));
    }
    EXPECT_LT(worst, 3.0 / 32768);
    EXPECT_EQ(0, *std::max_element(mix.samples.begin(), mix.samples.begin() + 2 * 11800));
}

}  // namespace
}  // namespace android
