#include "PolyphaseFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#if defined(__x86_64__)
#include <immintrin.h>
#else
#include <arm_neon.h>
#endif

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

// Frames made between two conversions to 16 bits.
constexpr size_t kBlockFrames = 128;

using Quad [[gnu::vector_size(16)]] = float;
using Octet [[gnu::vector_size(32)]] = float;

// A sum is made of sixteen parts, one every sixteenth tap, and those are added up in the same order
// whatever the vectors: each kind gives the same samples. There are so many that an addition need
// not wait for the one before.
constexpr size_t kParts = 16;

/** The sixteen parts of one channel. */
template <typename V>
struct Parts {
    static constexpr size_t kWidth = sizeof(V) / sizeof(float);
    static constexpr size_t kVectors = kParts / kWidth;

    [[gnu::always_inline]] void add(size_t vector, const float* samples, const V& coefficients) {
        V taps;
        memcpy(&taps, samples, sizeof taps);
        vectors[vector] += taps * coefficients;
    }

    /** Down to four of them. */
    [[gnu::always_inline]] void fold(Quad& quad) const {
        if constexpr (kWidth == 4) {
            quad = (vectors[0] + vectors[2]) + (vectors[1] + vectors[3]);
        } else {
            const V sum = vectors[0] + vectors[1];
            quad = __builtin_shufflevector(sum, sum, 0, 1, 2, 3) +
                   __builtin_shufflevector(sum, sum, 4, 5, 6, 7);
        }
    }

    V vectors[kVectors] = {};
};

/** Both channels under one row of coefficients; the first two elements of `sums` are theirs. */
template <typename V>
[[gnu::always_inline]] inline void applyRow(const float* left, const float* right, const float* row,
                                            size_t tapCount, Quad& sums) {
    Parts<V> leftParts;
    Parts<V> rightParts;
    const auto add = [&](size_t tap, size_t vectorCount) __attribute__((always_inline)) {
        for (size_t i = 0; i < vectorCount; ++i) {
            const size_t at = tap + i * Parts<V>::kWidth;
            V coefficients;
            memcpy(&coefficients, row + at, sizeof coefficients);
#if defined(__x86_64__) && !defined(__clang__)
            // Kept in a register: GCC would load them once for each channel.
            asm("" : "+x"(coefficients));
#endif
            leftParts.add(i, left + at, coefficients);
            rightParts.add(i, right + at, coefficients);
        }
    };
    size_t tap = 0;
    for (; tap + kParts <= tapCount; tap += kParts) {
        add(tap, Parts<V>::kVectors);
    }
    if (tap < tapCount) {  // the row ends in the middle
        add(tap, Parts<V>::kVectors / 2);
    }
    Quad l;
    Quad r;
    leftParts.fold(l);
    rightParts.fold(r);
    const Quad halves =
        __builtin_shufflevector(l, r, 0, 4, 1, 5) + __builtin_shufflevector(l, r, 2, 6, 3, 7);
    sums = halves + __builtin_shufflevector(halves, halves, 2, 3, 0, 1);
}

constexpr float kLowest = -32768;
constexpr float kHighest = 32767;

int16_t toSample(float value) {
    const float limited = std::clamp(value, kLowest, kHighest);
    return static_cast<int16_t>(limited + (limited < 0 ? -0.5f : 0.5f));
}

using Ints [[gnu::vector_size(16)]] = int32_t;
using Words [[gnu::vector_size(16)]] = int16_t;

/** To the nearest whole number, halves away from zero; the values are far inside 32 bits. */
[[gnu::always_inline]] inline Ints rounded(const float* values) {
    Quad value;
    memcpy(&value, values, sizeof value);
    constexpr Quad kHalf = Quad{} + 0.5f;
    const auto half = (Quad)((Ints)kHalf | ((Ints)value & INT32_MIN));  // of the value's sign
    return __builtin_convertvector(value + half, Ints);
}

/** Saturated to 16 bits. */
[[gnu::always_inline]] inline Words packed(Ints a, Ints b) {
#if defined(__x86_64__)
    return (Words)_mm_packs_epi32((__m128i)a, (__m128i)b);
#else
    return (Words)vcombine_s16(vqmovn_s32((int32x4_t)a), vqmovn_s32((int32x4_t)b));
#endif
}

/** toSample() of `count` values, eight at a time. */
void toSamples(const float* values, size_t count, int16_t* samples) {
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const Words words = packed(rounded(values + i), rounded(values + i + 4));
        memcpy(samples + i, &words, sizeof words);
    }
    std::transform(values + i, values + count, samples + i, toSample);
}

}  // namespace

PolyphaseFilter::PolyphaseFilter(const RateRatio& ratio, Vectors vectors)
    : mRatio(ratio), mVectors(vectors), mTapCount(tapsFor(ratio, kLanes)) {
    mIsExact = uint64_t{ratio.out} * mTapCount <= kMaxExactCoefficients;
    if (mIsExact) {
        mPhaseCount = ratio.out;
    } else if (ratio.lowersRate()) {
        mPhaseCount = (kInterpolatedRows * ratio.out + ratio.in - 1) / ratio.in;
    } else {
        mPhaseCount = kInterpolatedRows;
    }
    design();
}

PolyphaseFilter::Vectors PolyphaseFilter::widestVectors() {
#if defined(__x86_64__) && !defined(STREAMPROXY_BASELINE_ONLY)
    return __builtin_cpu_supports("avx2") ? Vectors::kAvx2 : Vectors::kBaseline;
#else
    return Vectors::kBaseline;
#endif
}

void PolyphaseFilter::design() {
    const size_t rowCount = mIsExact ? mPhaseCount : size_t{mPhaseCount} + 1;
    mTable.resize(rowCount * mTapCount / kLanes);
    const double halfWidth = static_cast<double>(mTapCount) / 2;
    const double cutoff =
        mRatio.lowersRate() ? kCutoffLowering * mRatio.out / mRatio.in : kCutoffRaising;
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
        for (size_t tap = 0; tap < mTapCount; ++tap) {
            mTable[(phase * mTapCount + tap) / kLanes].lanes[tap % kLanes] =
                static_cast<float>(row[tap] / sum);
        }
    }
}

size_t PolyphaseFilter::framesWithin(size_t inFrameCount, const Position& at) const {
    if (inFrameCount < at.frame + mTapCount) {
        return 0;
    }
    // The window of the n-th frame starts ceil((n * in - phase) / out) input frames further on.
    const uint64_t spare = inFrameCount - at.frame - mTapCount;
    return static_cast<size_t>((spare * mRatio.out + at.phase) / mRatio.in + 1);
}

void PolyphaseFilter::run(const float* samples, size_t channelStride, uint32_t channelCount,
                          int16_t* out, size_t frameCount, Position& at) const {
    float pairs[2 * kBlockFrames];
    while (frameCount > 0) {
        const size_t frames = std::min(frameCount, kBlockFrames);
        Position next = at;
        for (uint32_t channel = 0; channel < channelCount; channel += 2) {
            // An odd last channel is its own companion.
            const uint32_t other = std::min(channel + 1, channelCount - 1);
            next = at;
            runPair(samples + channel * channelStride, samples + other * channelStride, pairs,
                    frames, next);
            if (channelCount == 2) {
                toSamples(pairs, 2 * frames, out);
            } else {
                for (size_t frame = 0; frame < frames; ++frame) {
                    out[frame * channelCount + channel] = toSample(pairs[2 * frame]);
                    out[frame * channelCount + other] =
                        toSample(pairs[2 * frame + other - channel]);
                }
            }
        }
        at = next;
        out += frames * channelCount;
        frameCount -= frames;
    }
}

/** `out` gets the samples of both channels by turns. */
void PolyphaseFilter::runPair(const float* left, const float* right, float* out, size_t frameCount,
                              Position& at) const {
#if defined(__x86_64__)
    if (mVectors == Vectors::kAvx2) {
        runPairAvx2(left, right, out, frameCount, at);
        return;
    }
#endif
    runPairBaseline(left, right, out, frameCount, at);
}

template <typename V>
[[gnu::always_inline]] inline void PolyphaseFilter::runPairAny(const float* left,
                                                               const float* right, float* out,
                                                               size_t frameCount,
                                                               Position& at) const {
    const size_t wholeStep = mRatio.in / mRatio.out;
    const uint32_t fraction = mRatio.in % mRatio.out;
    const size_t tapCount = mTapCount;
    const float* const table = rows();
    size_t first = at.frame;
    uint32_t phase = at.phase;
    for (size_t frame = 0; frame < frameCount; ++frame) {
        Quad sums;
        if (mIsExact) {
            applyRow<V>(left + first, right + first, table + phase * tapCount, tapCount, sums);
        } else {
            const uint64_t scaled = uint64_t{phase} * mPhaseCount;
            const float* row = table + static_cast<size_t>(scaled / mRatio.out) * tapCount;
            const float weight =
                static_cast<float>(scaled % mRatio.out) / static_cast<float>(mRatio.out);
            Quad after;
            applyRow<V>(left + first, right + first, row, tapCount, sums);
            applyRow<V>(left + first, right + first, row + tapCount, tapCount, after);
            sums += weight * (after - sums);
        }
        out[2 * frame] = sums[0];
        out[2 * frame + 1] = sums[1];
        first += wholeStep;
        if (phase < fraction) {
            phase += mRatio.out;
            ++first;
        }
        phase -= fraction;
    }
    at = {first, phase};
}

void PolyphaseFilter::runPairBaseline(const float* left, const float* right, float* out,
                                      size_t frameCount, Position& at) const {
    runPairAny<Quad>(left, right, out, frameCount, at);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void PolyphaseFilter::runPairAvx2(const float* left, const float* right,
                                                          float* out, size_t frameCount,
                                                          Position& at) const {
    runPairAny<Octet>(left, right, out, frameCount, at);
}
#endif

}  // namespace android
