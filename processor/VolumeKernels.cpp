#include "processor/VolumeKernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace android {

namespace {

constexpr int kRampShift = 16;       // from U4.28 to U4.12
constexpr int kUnityGain = 1 << 12;  // U4.12

// Signed sums and products that wrap around, as the fixed-point format wants them.
constexpr int wrappingAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
constexpr int wrappingMultiply(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/** A value of either channel. By value, so that no sample that is written may be seen to change it. */
struct Stereo {
    int operator[](size_t channel) const { return channel == 0 ? left : right; }

    int left;
    int right;
};

/** Whether the gain stays from 0 to unity all through a pass: then a 16-bit product needs no
 *  saturation, and the vector kernels hold. Gains out of setVolume() always do; a ramp that runs
 *  past its target may not. */
bool isAttenuation(size_t frameCount, bool ramp, Stereo position, Stereo increment, Stereo volume) {
    const auto fits = [](int64_t gain) { return gain >= 0 && gain <= kUnityGain; };
    for (size_t i = 0; i < 2; ++i) {
        // The gain of a ramp is an affine function of the frame number: its ends bound it.
        const int64_t first = position[i];
        const int64_t frames = static_cast<int64_t>(std::min(frameCount, size_t{1} << 31)) - 1;
        const int64_t last = first + frames * increment[i];
        if (ramp ? !fits(first >> kRampShift) || !fits(last >> kRampShift) : !fits(volume[i])) {
            return false;
        }
    }
    return frameCount < size_t{1} << 31;
}

}  // namespace

// The kernels are written once, in VolumeKernels.inc, over the few operations on vectors that C++
// has no word for. Each instruction set names its vectors and those, and takes the kernels in:
//
//   scale(Words samples, Words gains)   samples * gains >> 12, for gains from 0 to 4096
//   scale(Ints a, Ints b, Ints gainsA, Ints gainsB)
//                                       the same of Q4.27 samples, saturated to 16 bits
//   products(const short* in, Ints gainsA, Ints gainsB, Unsigned& a, Unsigned& b)
//                                       kWords samples by their gains, which fit 16 bits
//   gainsAt(Ints a, Ints b)             16-bit gains of ramp positions, `a` and `b` taken by turns
//                                       of four lanes

namespace baseline {
#define KERNEL_TARGET
using Words [[gnu::vector_size(16)]] = int16_t;
using Ints [[gnu::vector_size(16)]] = int32_t;
using UnsignedWords [[gnu::vector_size(16)]] = uint16_t;  // wrap around
using Unsigned [[gnu::vector_size(16)]] = uint32_t;

#if defined(__x86_64__)

inline Words scale(Words samples, Words gains) {
    // The high half of samples * (gains << 4). From a gain of 2048 on that factor comes out 65536
    // too small, as a signed number: then the sample itself is missing.
    const auto high =
        (Words)_mm_mulhi_epi16((__m128i)samples, (__m128i)((UnsignedWords)gains << 4));
    return high + (samples & (gains > 2047));
}

/** SSE2 has no 32-bit product. Of a sample, 65536 * high + 4096 * low with 4 bits in `low`, each
 *  part is multiplied by 8 times the gain, so that >> 11 is left to do. `high` gets the negative
 *  factor: that one reaches the 32768 of unity. */
inline Ints product(Ints samples, Ints gains) {
    const auto low = (Ints)_mm_mulhi_epu16((__m128i)(samples & 0xF000), (__m128i)(gains << 3));
    const auto high =
        (Ints)_mm_madd_epi16((__m128i)samples, (__m128i)(0 - ((Unsigned)gains << 19)));
    return (low - high) >> 11;
}

inline Words scale(Ints a, Ints b, Ints gainsA, Ints gainsB) {
    return (Words)_mm_packs_epi32((__m128i)product(a, gainsA), (__m128i)product(b, gainsB));
}

inline void products(const short* in, Ints gainsA, Ints gainsB, Unsigned& a, Unsigned& b) {
    const __m128i samples = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i zero = _mm_setzero_si128();
    // Upper halves of gains are multiplied by 0.
    a = (Unsigned)_mm_madd_epi16(_mm_unpacklo_epi16(samples, zero), (__m128i)gainsA);
    b = (Unsigned)_mm_madd_epi16(_mm_unpackhi_epi16(samples, zero), (__m128i)gainsB);
}

inline Words gainsAt(Ints a, Ints b) {
    return (Words)_mm_packs_epi32((__m128i)(a >> kRampShift), (__m128i)(b >> kRampShift));
}

#elif defined(__ARM_NEON)

inline Words scale(Words samples, Words gains) {
    const auto s = (int16x8_t)samples;
    const auto g = (int16x8_t)gains;
    return (Words)vcombine_s16(vshrn_n_s32(vmull_s16(vget_low_s16(s), vget_low_s16(g)), 12),
                               vshrn_n_s32(vmull_s16(vget_high_s16(s), vget_high_s16(g)), 12));
}

inline Words scale(Ints a, Ints b, Ints gainsA, Ints gainsB) {
    return (Words)vcombine_s16(vqshrn_n_s32((int32x4_t)((a >> 12) * gainsA), 12),
                               vqshrn_n_s32((int32x4_t)((b >> 12) * gainsB), 12));
}

inline void products(const short* in, Ints gainsA, Ints gainsB, Unsigned& a, Unsigned& b) {
    const int16x8_t samples = vld1q_s16(in);
    a = (Unsigned)vmull_s16(vget_low_s16(samples), vmovn_s32((int32x4_t)gainsA));
    b = (Unsigned)vmull_s16(vget_high_s16(samples), vmovn_s32((int32x4_t)gainsB));
}

inline Words gainsAt(Ints a, Ints b) {
    return (Words)vcombine_s16(vshrn_n_s32((int32x4_t)a, kRampShift),
                               vshrn_n_s32((int32x4_t)b, kRampShift));
}

#else
#error "name the vector operations of this processor"
#endif

#include "processor/VolumeKernels.inc"
#undef KERNEL_TARGET
}  // namespace baseline

#if defined(__x86_64__)
namespace avx2 {
#define KERNEL_TARGET [[gnu::target("avx2")]]
using Words [[gnu::vector_size(32)]] = int16_t;
using Ints [[gnu::vector_size(32)]] = int32_t;
using UnsignedWords [[gnu::vector_size(32)]] = uint16_t;  // wrap around
using Unsigned [[gnu::vector_size(32)]] = uint32_t;

KERNEL_TARGET inline Words scale(Words samples, Words gains) {
    const auto high =
        (Words)_mm256_mulhi_epi16((__m256i)samples, (__m256i)((UnsignedWords)gains << 4));
    return high + (samples & (gains > 2047));  // as above
}

KERNEL_TARGET inline Words scale(Ints a, Ints b, Ints gainsA, Ints gainsB) {
    const auto productA = (__m256i)((a >> 12) * gainsA >> 12);
    const auto productB = (__m256i)((b >> 12) * gainsB >> 12);
    // Both halves of the register are packed apart; the shuffle brings the words into order.
    return (Words)_mm256_permute4x64_epi64(_mm256_packs_epi32(productA, productB), 0b11011000);
}

KERNEL_TARGET inline void products(const short* in, Ints gainsA, Ints gainsB, Unsigned& a,
                                   Unsigned& b) {
    const auto* const halves = reinterpret_cast<const __m128i*>(in);
    const __m256i first = _mm256_cvtepu16_epi32(_mm_loadu_si128(halves));
    const __m256i second = _mm256_cvtepu16_epi32(_mm_loadu_si128(halves + 1));
    a = (Unsigned)_mm256_madd_epi16(first, (__m256i)gainsA);  // as above
    b = (Unsigned)_mm256_madd_epi16(second, (__m256i)gainsB);
}

KERNEL_TARGET inline Words gainsAt(Ints a, Ints b) {
    return (Words)_mm256_packs_epi32((__m256i)(a >> kRampShift), (__m256i)(b >> kRampShift));
}

#include "processor/VolumeKernels.inc"
#undef KERNEL_TARGET
}  // namespace avx2
#endif

template <int MixType, typename TO, typename TI>
VolumeOp volumeKernel([[maybe_unused]] InstructionSet set) {
#if defined(__x86_64__)
    if (set == InstructionSet::kAvx2) {
        return avx2::volumeMix<MixType, TO, TI>;
    }
#endif
    return baseline::volumeMix<MixType, TO, TI>;
}

template VolumeOp volumeKernel<0, short, short>(InstructionSet);
template VolumeOp volumeKernel<0, int, short>(InstructionSet);
template VolumeOp volumeKernel<0, short, int>(InstructionSet);
template VolumeOp volumeKernel<0, int, int>(InstructionSet);
template VolumeOp volumeKernel<2, short, short>(InstructionSet);
template VolumeOp volumeKernel<2, int, short>(InstructionSet);
template VolumeOp volumeKernel<2, short, int>(InstructionSet);
template VolumeOp volumeKernel<2, int, int>(InstructionSet);

}  // namespace android
