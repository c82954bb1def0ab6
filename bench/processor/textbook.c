// Compiled twice, see CMakeLists.txt: SET names the instruction set.
#include "bench/processor/textbook.h"

#define JOIN2(a, b) a##b
#define JOIN(a, b) JOIN2(a, b)

static int16_t saturated(int product) {
    if (product >> 27 == product >> 31) {
        return (int16_t)(product >> 12);
    }
    return product < 0 ? -32768 : 32767;
}

static int plain(int product) {
    return product;
}

#define SAMPLE(TO, SHIFT, STORED, GAIN)                                          \
    const size_t at = 2 * frame + i;                                             \
    const int product = (int)((unsigned)(in[at] >> (SHIFT)) * (unsigned)(GAIN)); \
    out[at] = (TO)((unsigned)out[at] + (unsigned)STORED(product))

#define KERNEL(NAME, TO, TI, SHIFT, STORED)                                          \
    void JOIN(NAME, SET)(TO * out, size_t frames, const TI* in, int ramp, int* prev, \
                         const int* inc, const short* volume) {                      \
        for (size_t frame = 0; ramp && frame < frames; ++frame) {                    \
            for (size_t i = 0; i < 2; ++i) {                                         \
                SAMPLE(TO, SHIFT, STORED, prev[i] >> 16);                            \
                prev[i] += inc[i];                                                   \
            }                                                                        \
        }                                                                            \
        for (size_t frame = 0; !ramp && frame < frames; ++frame) {                   \
            for (size_t i = 0; i < 2; ++i) {                                         \
                SAMPLE(TO, SHIFT, STORED, volume[i]);                                \
            }                                                                        \
        }                                                                            \
    }

KERNEL(plain16to16, int16_t, int16_t, 0, saturated)
KERNEL(plain32to16, int16_t, int32_t, 12, saturated)
KERNEL(plain16to32, int32_t, int16_t, 0, plain)
KERNEL(plain32to32, int32_t, int32_t, 12, plain)

#ifdef TEXTBOOK_MIX
#include <immintrin.h>

void rampFloorAvx2(int16_t* out, size_t sampleCount, const int16_t* in, const int* position,
                   const int* increment) {
    int first[16];
    for (int i = 0; i < 16; ++i) {
        first[i] = position[i % 2] + increment[i % 2] * (i / 2);
    }
    __m256i a = _mm256_loadu_si256((const __m256i*)first);
    __m256i b = _mm256_loadu_si256((const __m256i*)(first + 8));
    const __m256i step = _mm256_set1_epi64x(
        (long long)((uint64_t)(uint32_t)(8 * increment[1]) << 32 | (uint32_t)(8 * increment[0])));
    for (size_t at = 0; at + 16 <= sampleCount; at += 16) {
        const __m256i gains =
            _mm256_packs_epi32(_mm256_srai_epi32(a, 16), _mm256_srai_epi32(b, 16));
        const __m256i samples = _mm256_loadu_si256((const __m256i*)(in + at));
        __m256i* const mix = (__m256i*)(out + at);
        const __m256i gained = _mm256_mulhi_epi16(samples, gains);
        _mm256_storeu_si256(mix, _mm256_add_epi16(_mm256_loadu_si256(mix), gained));
        a = _mm256_add_epi32(a, step);
        b = _mm256_add_epi32(b, step);
    }
}

void textbookMix16(int16_t* out, size_t sampleCount, const int16_t* in, int gain) {
    for (size_t i = 0; i < sampleCount; ++i) {
        out[i] = (int16_t)(out[i] + ((in[i] * gain) >> 12));
    }
}
#endif
