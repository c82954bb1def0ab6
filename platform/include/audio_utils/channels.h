#pragma once

#include <stddef.h>

/**
 * Changes the channel count of interleaved PCM. Each output frame holds the first samples of its
 * input frame, as many as fit, then zero samples. `sampleByteCount` is 1 to 4; `inByteCount` is cut
 * to whole input frames. The buffers do not overlap.
 * Bytes written to `out`; 0 for channel counts or sample sizes outside the ranges.
 */
size_t adjust_channels(const void* in, size_t inChannelCount, void* out, size_t outChannelCount,
                       unsigned sampleByteCount, size_t inByteCount);
