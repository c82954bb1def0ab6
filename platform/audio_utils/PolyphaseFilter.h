/**
 * The low-pass filter between two rates, laid out by phase: a sinc under Kaiser's window, 64 taps
 * long in the slower rate's time.
 *
 * An output frame stands phase / ratio.out before the input frame that its window is centred on
 * (0 <= phase < ratio.out). Where a table of all these phases is small, each has its own row. The
 * other pairs share a table so fine that the output interpolated between two of its rows errs by
 * less than 16 bits can show (-110 dB).
 *
 * Threads: any, it never changes after construction, which throws std::bad_alloc.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RateRatio.h"

namespace android {

class PolyphaseFilter {
public:
    /** What the inner loops are compiled for. Every one gives the same samples. */
    enum class Vectors : uint8_t { kBaseline, kAvx2 };

    /** Where the next output frame stands. */
    struct Position {
        size_t frame;    // first input frame of its window
        uint32_t phase;  // before the centre of the window, of ratio.out
    };

    explicit PolyphaseFilter(const RateRatio& ratio, Vectors vectors = widestVectors());

    /** The widest that this processor has. */
    static Vectors widestVectors();

    /** Input frames under one window; a multiple of kLanes. The centre is at half of it. */
    size_t tapCount() const { return mTapCount; }

    /** The output frames from `at` on whose windows end within `inFrameCount` frames. */
    size_t framesWithin(size_t inFrameCount, const Position& at) const;

    /**
     * Makes `frameCount` frames, and moves `at` on behind them. A channel's input is `samples`
     * float samples from `samples + channel * channelStride` on, its output every `channelCount`-th
     * sample of `out`, rounded and limited to 16 bits.
     */
    void run(const float* samples, size_t channelStride, uint32_t channelCount, int16_t* out,
             size_t frameCount, Position& at) const;

private:
    static constexpr size_t kLanes = 8;
    /** Aligned, so that no load of coefficients straddles two cache lines. */
    struct alignas(kLanes * sizeof(float)) Coefficients {
        float lanes[kLanes];
    };

    void design();
    const float* rows() const { return reinterpret_cast<const float*>(mTable.data()); }
    void runPair(const float* left, const float* right, float* out, size_t frameCount,
                 Position& at) const;
    // The same definition for each set of vectors.
    void runPairBaseline(const float* left, const float* right, float* out, size_t frameCount,
                         Position& at) const;
    void runPairAvx2(const float* left, const float* right, float* out, size_t frameCount,
                     Position& at) const;
    template <typename V>
    void runPairAny(const float* left, const float* right, float* out, size_t frameCount,
                    Position& at) const;
    template <typename V>
    void runRow(const float* left, const float* right, const float* row, float* out,
                size_t frameCount) const;
    template <typename V>
    void interpolate(const float* left, const float* right, uint32_t phase, float* out) const;
    Position after(const Position& at, size_t frameCount) const;

    const RateRatio mRatio;
    const Vectors mVectors;
    const size_t mTapCount;
    bool mIsExact;
    uint32_t mPhaseCount;              // rows of one input frame; not exact: one more row follows
    std::vector<Coefficients> mTable;  // row after row, mTapCount coefficients each
};

}  // namespace android
