// Compiled twice, see CMakeLists.txt: SET names the instruction set.
#include "bench/processor/textbook.h"

#include <immintrin.h>

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

#ifdef __AVX2__
#define VECTOR(name) _mm256_##name
#define BITS(name) _mm256_##name##_si256
typedef __m256i Vector;
#else
#define VECTOR(name) _mm_##name
#define BITS(name) _mm_##name##_si128
typedef __m128i Vector;
#endif

void JOIN(rampFloor, SET)(int16_t* out, size_t sampleCount, const int16_t* in, const int* position,
                          const int* increment) {
    enum { kWords = sizeof(Vector) / sizeof(int16_t) };
    int first[kWords];
    int steps[kWords / 2];
    for (int i = 0; i < kWords; ++i) {
        first[i] = position[i % 2] + increment[i % 2] * (i / 2);
        steps[i / 2] = increment[i / 2 % 2] * (kWords / 2);
    }
    Vector a = BITS(loadu)((const Vector*)first);
    Vector b = BITS(loadu)((const Vector*)(first + kWords / 2));
    const Vector step = BITS(loadu)((const Vector*)steps);
    for (size_t at = 0; at + kWords <= sampleCount; at += kWords) {
        const Vector gains =
            VECTOR(packs_epi32)(VECTOR(srai_epi32)(a, 16), VECTOR(srai_epi32)(b, 16));
        const Vector samples = BITS(loadu)((const Vector*)(in + at));
        Vector* const mix = (Vector*)(out + at);
        const Vector gained = VECTOR(mulhi_epi16)(samples, gains);
        BITS(storeu)(mix, VECTOR(add_epi16)(BITS(loadu)(mix), gained));
        a = VECTOR(add_epi32)(a, step);
        b = VECTOR(add_epi32)(b, step);
    }
}

#ifdef TEXTBOOK_MIX
void textbookMix16(int16_t* out, size_t sampleCount, const int16_t* in, int gain) {
    for (size_t i = 0; i < sampleCount; ++i) {
        out[i] = (int16_t)(out[i] + ((in[i] * gain) >> 12));
    }
}
#endif
