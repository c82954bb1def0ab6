/**
 * What the tests of the sample-rate converter share: a converter that frees itself, signals, and
 * the measurement of a tone.
 */
#pragma once

#include <audio_utils/resampler.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace android {

using Pcm = std::vector<int16_t>;

struct RatePair {
    uint32_t in;
    uint32_t out;
    uint32_t lower() const { return in < out ? in : out; }
};

class TestConverter {
public:
    explicit TestConverter(RatePair rates, uint32_t channelCount = 1)
        : mRates(rates), mChannels(channelCount) {
        create_resampler(rates.in, rates.out, channelCount, 4, nullptr, &mHandle);
    }
    ~TestConverter() { release_resampler(mHandle); }
    TestConverter(const TestConverter&) = delete;
    TestConverter& operator=(const TestConverter&) = delete;

    struct Counts {
        size_t consumed;
        size_t produced;
    };
    // One call; appends what it produces to `out`. Frames are copied, so that a read beyond is
    // seen.
    Counts convert(const Pcm& in, size_t position, size_t offered, Pcm& out, size_t room) {
        const auto from = in.begin() + static_cast<ptrdiff_t>(position * mChannels);
        Pcm input(from, from + static_cast<ptrdiff_t>(offered * mChannels));
        Pcm output(room * mChannels);
        input.reserve(1);  // null even for no frames would be refused
        output.reserve(1);
        Counts counts{offered, room};
        mHandle->resample_from_input(mHandle, input.data(), &counts.consumed, output.data(),
                                     &counts.produced);
        out.insert(out.end(), output.begin(),
                   output.begin() + static_cast<ptrdiff_t>(counts.produced * mChannels));
        return counts;
    }
    // All of `in` in one call.
    Pcm convertAll(const Pcm& in) {
        const size_t frames = in.size() / mChannels;
        Pcm out;
        convert(in, 0, frames, out, frames * mRates.out / mRates.in + 16);
        return out;
    }

    resampler_itfe* handle() { return mHandle; }

private:
    const RatePair mRates;
    const uint32_t mChannels;
    resampler_itfe* mHandle = nullptr;
};

constexpr double kToneAmplitude = 29204.5;  // -1 dB of full scale

inline Pcm makeTone(double frequencyHz, uint32_t rateHz, size_t frameCount) {
    Pcm tone(frameCount);
    for (size_t i = 0; i < frameCount; ++i) {
        const double cycles = std::fmod(frequencyHz * static_cast<double>(i) / rateHz, 1.0);
        tone[i] = static_cast<int16_t>(
            std::lround(kToneAmplitude * std::sin(2 * std::numbers::pi * cycles)));
    }
    return tone;
}

struct Tone {
    double levelDb;    // relative to makeTone's
    double snrDb;      // against all that is not the tone
    double lagCycles;  // behind makeTone, from -0.5 to 0.5
};

// Fits a sine of known frequency by least squares, after `skipped` frames of settling.
inline Tone measureTone(const Pcm& signal, double frequencyHz, uint32_t rateHz, size_t skipped) {
    double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0, yy = 0;
    for (size_t i = skipped; i < signal.size(); ++i) {
        const double cycles = frequencyHz * static_cast<double>(i) / rateHz;
        const double angle = 2 * std::numbers::pi * std::fmod(cycles, 1.0);
        const double s = std::sin(angle), c = std::cos(angle), y = signal[i];
        ss += s * s, sc += s * c, cc += c * c, ys += y * s, yc += y * c, yy += y * y;
    }
    const double determinant = ss * cc - sc * sc;
    const double sine = (ys * cc - yc * sc) / determinant;
    const double cosine = (yc * ss - ys * sc) / determinant;
    const double tonePower = sine * ys + cosine * yc;
    return {20 * std::log10(std::hypot(sine, cosine) / kToneAmplitude),
            10 * std::log10(tonePower / (yy - tonePower)),
            std::atan2(-cosine, sine) / (2 * std::numbers::pi)};
}

}  // namespace android
