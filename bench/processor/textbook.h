/**
 * What anybody would write, in C, compiled by the same compiler with all that it has:
 * textbookMix16() for AVX2; for AVX2 and for the baseline instruction set, the arithmetic of
 * VolumeMixer as its definition reads, a frame and a channel at a time.
 *
 * And rampFloor(), what no 16-bit ramp goes without: samples and mix in and out, the gain of every
 * frame, one product and one sum. Less than the kernel: its product lacks its lowest bits.
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
