#include "PolyphaseFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace android {

namespace {

constexpr uint32_t kSlowTaps = 64;

// 512 KiB of coefficients; nearly every pair of usual rates stays below.
constexpr uint64_t kMaxExactCoefficients = uint64_t{1} << 17;

// Rows in the time of one slow frame. A tone at 0.8 of the lower Nyquist frequency comes out of the
// interpolation with an error of -113 dB; the error falls with the square of the row count.
constexpr uint32_t kInterpolatedRows = 512;

// 64 taps fall from the pass band to -80 dB within 0.17 of the Nyquist frequency. This puts the
// fall from 0.85 on. Raising the rate, what leaks through above 1.0 mirrors content from just below
// it, which is rare and up where it is not heard; lowering it, it would be folded back into the
// band, so the fall ends there.
constexpr double kKaiserBeta = 8.4;
constexpr double kCutoffRaising = 0.9395;  // the -6 dB point, of the lower Nyquist frequency
constexpr double kCutoffLowering = 0.9215;

double besselI0(double x) {
    const double quarterSquare = x * x / 4;
    double sum = 1;
    double term = 1;
    for (int k = 1; term > sum * 1e-17; ++k) {
        term *= quarterSquare / (static_cast<double>(k) * k);
        sum += term;
    }
    return sum;
}

/** The window at `x`, from -1 to 1; 0 beyond. Not scaled: rows are. */
double kaiser(double x) {
    const double inside = 1 - x * x;
    return inside < 0 ? 0 : besselI0(kKaiserBeta * std::sqrt(inside));
}

double sinc(double x) {
    const double angle = std::numbers::pi * x;
    return std::abs(angle) < 1e-9 ? 1 : std::sin(angle) / angle;
}

size_t tapsFor(const RateRatio& ratio, size_t multiple) {
    const uint64_t taps = ratio.lowersRate()
                              ? (uint64_t{kSlowTaps} * ratio.in + ratio.out - 1) / ratio.out
                              : kSlowTaps;
    return (static_cast<size_t>(taps) + multiple - 1) / multiple * multiple;
}

}  // namespace

PolyphaseFilter::PolyphaseFilter(const RateRatio& ratio)
    : mTapCount(tapsFor(ratio, kLanes)), mRatioOut(ratio.out) {
    mIsExact = uint64_t{ratio.out} * mTapCount <= kMaxExactCoefficients;
    if (mIsExact) {
        mPhaseCount = ratio.out;
    } else if (ratio.lowersRate()) {
        mPhaseCount = (kInterpolatedRows * ratio.out + ratio.in - 1) / ratio.in;
    } else {
        mPhaseCount = kInterpolatedRows;
    }
    design(ratio);
}

void PolyphaseFilter::design(const RateRatio& ratio) {
    const size_t rowCount = mIsExact ? mPhaseCount : size_t{mPhaseCount} + 1;
    mTable.resize(rowCount * mTapCount);
    const double halfWidth = static_cast<double>(mTapCount) / 2;
    const double cutoff =
        ratio.lowersRate() ? kCutoffLowering * ratio.out / ratio.in : kCutoffRaising;
    std::vector<double> row(mTapCount);
    for (size_t phase = 0; phase < rowCount; ++phase) {
        const double first = static_cast<double>(phase) / mPhaseCount - halfWidth;
        double sum = 0;
        for (size_t tap = 0; tap < mTapCount; ++tap) {
            const double distance = first + static_cast<double>(tap);
            row[tap] = sinc(cutoff * distance) * kaiser(distance / halfWidth);
            sum += row[tap];
        }
        // Every row passes a constant unchanged, else silence with an offset would hum.
        float* coefficients = &mTable[phase * mTapCount];
        std::transform(row.begin(), row.end(), coefficients,
                       [sum](double value) { return static_cast<float>(value / sum); });
    }
}

float PolyphaseFilter::apply(const float* window, uint32_t phase) const {
    if (mIsExact) {
        return sumOfProducts(window, &mTable[phase * mTapCount]);
    }
    const uint64_t scaled = uint64_t{phase} * mPhaseCount;
    const float* row = &mTable[static_cast<size_t>(scaled / mRatioOut) * mTapCount];
    const float weight = static_cast<float>(scaled % mRatioOut) / static_cast<float>(mRatioOut);
    const float before = sumOfProducts(window, row);
    const float after = sumOfProducts(window, row + mTapCount);
    return before + weight * (after - before);
}

/** Lanes are summed apart in a fixed order: vectors of any width give the same result. */
float PolyphaseFilter::sumOfProducts(const float* window, const float* row) const {
    std::array<float, kLanes> sums{};
    for (size_t tap = 0; tap < mTapCount; tap += kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += window[tap + lane] * row[tap + lane];
        }
    }
    for (size_t width = kLanes / 2; width > 0; width /= 2) {
        for (size_t lane = 0; lane < width; ++lane) {
            sums[lane] += sums[lane + width];
        }
    }
    return sums[0];
}

}  // namespace android
