#pragma once

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "ResamplerFixture.h"

namespace android {

/** The highest line of the end of a signal, in dB of makeTone's level, the tone's own left out. */
inline double highestLine(const Pcm& signal, double toneHz, uint32_t rateHz) {
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

/** Of a converted tone: its images and harmonics if it is kept, its alias if it is above the band.
 *  `convert` takes and gives one channel. */
template <typename Convert>
double measureSpur(RatePair rates, double frequencyHz, bool isToneKept, Convert convert) {
    const size_t frames = size_t{8192 + 400} * rates.in / rates.out + 400;
    return highestLine(convert(makeTone(frequencyHz, rates.in, frames)),
                       isToneKept ? frequencyHz : -static_cast<double>(rates.out), rates.out);
}

/** The highest line beside any kept tone, and any tone above the band makes. */
struct Spurs {
    double keptDb = -300;
    double foldedDb = -300;  // stays so where no tone above the band exists
};

template <typename Convert>
Spurs worstSpurs(RatePair rates, Convert convert) {
    const double nyquistHz = rates.lower() / 2.0;
    Spurs worst;
    for (double relative = 0.02; relative < 0.975; relative += 0.019) {
        worst.keptDb =
            std::max(worst.keptDb, measureSpur(rates, relative * nyquistHz, true, convert));
    }
    for (double hz = 1.01 * nyquistHz; hz < rates.in / 2.0; hz += 0.0123 * nyquistHz) {
        worst.foldedDb = std::max(worst.foldedDb, measureSpur(rates, hz, false, convert));
    }
    return worst;
}

}  // namespace android
