/**
 * The obvious loops in C, compiled by the same compiler with all its optimisations:
 * textbookMix16() for AVX2; for AVX2 and for the baseline instruction set, the arithmetic of
 * VolumeMixer as its definition reads, a frame and a channel at a time.
 *
 * And rampFloor(), the least that a 16-bit ramp needs: samples and mix in and out, the gain of
 * every frame, one product and one sum. It does less than the kernel: its product lacks low bits.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One gain (U4.12), sums that wrap around. */
void textbookMix16(int16_t* out, size_t sampleCount, const int16_t* in, int gain);

#define TEXTBOOK_KERNELS(SET)                                                                     \
    void plain16to16##SET(int16_t* out, size_t frames, const int16_t* in, int ramp, int* prev,    \
                          const int* inc, const short* volume);                                   \
    void plain32to16##SET(int16_t* out, size_t frames, const int32_t* in, int ramp, int* prev,    \
                          const int* inc, const short* volume);                                   \
    void plain16to32##SET(int32_t* out, size_t frames, const int16_t* in, int ramp, int* prev,    \
                          const int* inc, const short* volume);                                   \
    void plain32to32##SET(int32_t* out, size_t frames, const int32_t* in, int ramp, int* prev,    \
                          const int* inc, const short* volume);                                   \
    void rampFloor##SET(int16_t* out, size_t sampleCount, const int16_t* in, const int* position, \
                        const int* increment);
TEXTBOOK_KERNELS(Baseline)
TEXTBOOK_KERNELS(Avx2)
#undef TEXTBOOK_KERNELS

#ifdef __cplusplus
}
#endif
