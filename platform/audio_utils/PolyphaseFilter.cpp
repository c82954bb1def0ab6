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

// Frames made between two conversions to 16 bits: a block of the mix, so that rows come up often.
constexpr size_t kBlockFrames = 1024;

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

/** Both channels of an output frame in the making. */
template <typename V>
struct StereoParts {
    StereoParts(const float* leftSamples, const float* rightSamples)
        : left(leftSamples), right(rightSamples) {}

    [[gnu::always_inline]] void add(size_t vector, size_t tap, const V& coefficients) {
        leftParts.add(vector, left + tap, coefficients);
        rightParts.add(vector, right + tap, coefficients);
    }

    /** The two sums are the first two elements. */
    [[gnu::always_inline]] void fold(Quad& sums) const {
        Quad l;
        Quad r;
        leftParts.fold(l);
        rightParts.fold(r);
        const Quad halves =
            __builtin_shufflevector(l, r, 0, 4, 1, 5) + __builtin_shufflevector(l, r, 2, 6, 3, 7);
        sums = halves + __builtin_shufflevector(halves, halves, 2, 3, 0, 1);
    }

    const float* const left;
    const float* const right;
    Parts<V> leftParts;
    Parts<V> rightParts;
};

/** One row of coefficients over the windows of frames. */
template <typename V, typename... Frames>
[[gnu::always_inline]] inline void applyRow(const float* row, size_t tapCount, Frames&... frames) {
    const auto add = [&](size_t tap, size_t vectorCount) __attribute__((always_inline)) {
        for (size_t i = 0; i < vectorCount; ++i) {
            const size_t at = tap + i * Parts<V>::kWidth;
            V coefficients;
            memcpy(&coefficients, row + at, sizeof coefficients);
#if defined(__x86_64__) && !defined(__clang__)
            // Kept in a register: GCC would load them once for each channel.
            asm("" : "+x"(coefficients));
#endif
            (frames.add(i, at, coefficients), ...);
        }
    };
    size_t tap = 0;
    for (; tap + kParts <= tapCount; tap += kParts) {
        add(tap, Parts<V>::kVectors);
    }
    if (tap < tapCount) {  // the row ends in the middle
        add(tap, Parts<V>::kVectors / 2);
    }
}

#if defined(__aarch64__)
constexpr size_t kRegisters = 32;
#else
constexpr size_t kRegisters = 16;
#endif
/** What a frame costs is loads. Two that lie under the same row share its coefficients, where there
 *  are registers for the parts of both. */
template <typename V>
constexpr bool kSharesRows = 4 * Parts<V>::kVectors < kRegisters;

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
    // Later frames under the same row are made with the first of them.
    const size_t rowStep = mIsExact ? mRatio.out : frameCount;
    size_t first = at.frame;
    uint32_t phase = at.phase;
    for (size_t frame = 0; frame < std::min(frameCount, rowStep); ++frame) {
        if (mIsExact) {
            runRow<V>(left + first, right + first, rows() + phase * mTapCount, out + 2 * frame,
                      (frameCount - frame + rowStep - 1) / rowStep);
        } else {
            interpolate<V>(left + first, right + first, phase, out + 2 * frame);
        }
        first += wholeStep;
        if (phase < fraction) {
            phase += mRatio.out;
            ++first;
        }
        phase -= fraction;
    }
    at = after(at, frameCount);
}

/** `frameCount` frames under one row, every mRatio.out-th of the output. */
template <typename V>
[[gnu::always_inline]] inline void PolyphaseFilter::runRow(const float* left, const float* right,
                                                           const float* row, float* out,
                                                           size_t frameCount) const {
    const size_t step = mRatio.in;
    const auto put = [](const StereoParts<V>& parts, float* to) __attribute__((always_inline)) {
        Quad sums;
        parts.fold(sums);
        memcpy(to, &sums, 2 * sizeof(float));
    };
    size_t frame = 0;
    if constexpr (kSharesRows<V>) {
        for (; frame + 2 <= frameCount; frame += 2) {
            const size_t at = frame * step;
            StereoParts<V> one(left + at, right + at);
            StereoParts<V> other(left + at + step, right + at + step);
            applyRow<V>(row, mTapCount, one, other);
            put(one, out + 2 * frame * mRatio.out);
            put(other, out + 2 * (frame + 1) * mRatio.out);
        }
    }
    for (; frame < frameCount; ++frame) {
        StereoParts<V> parts(left + frame * step, right + frame * step);
        applyRow<V>(row, mTapCount, parts);
        put(parts, out + 2 * frame * mRatio.out);
    }
}

/** One frame between the two rows next to its phase. */
template <typename V>
[[gnu::always_inline]] inline void PolyphaseFilter::interpolate(const float* left,
                                                                const float* right, uint32_t phase,
                                                                float* out) const {
    const uint64_t scaled = uint64_t{phase} * mPhaseCount;
    const float* const row = rows() + static_cast<size_t>(scaled / mRatio.out) * mTapCount;
    const float weight = static_cast<float>(scaled % mRatio.out) / static_cast<float>(mRatio.out);
    StereoParts<V> before(left, right);
    StereoParts<V> after(left, right);
    applyRow<V>(row, mTapCount, before);
    applyRow<V>(row + mTapCount, mTapCount, after);
    Quad sums;
    Quad sumsAfter;
    before.fold(sums);
    after.fold(sumsAfter);
    sums += weight * (sumsAfter - sums);
    memcpy(out, &sums, 2 * sizeof(float));
}

PolyphaseFilter::Position PolyphaseFilter::after(const Position& at, size_t frameCount) const {
    // The phase falls by in modulo out a frame; below 0 it begins anew, a frame further on.
    const uint64_t way = uint64_t{frameCount} * mRatio.in + mRatio.out - 1 - at.phase;
    const uint64_t frames = way / mRatio.out;
    return {at.frame + static_cast<size_t>(frames),
            static_cast<uint32_t>(mRatio.out - 1 - way % mRatio.out)};
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
