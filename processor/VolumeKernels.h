#pragma once

#include <cstddef>

#include "processor/InstructionSet.h"

namespace android {

/**
 * One pass of gain over interleaved stereo frames: see VolumeMixer for the arithmetic. `prevVolume`
 * and `volumeInc` are U4.28, `volume` U4.12, one each per channel. With `ramp` the positions in
 * `prevVolume` move on by `frameCount` increments; else both are left alone.
 */
using VolumeOp = void (*)(void* out, size_t frameCount, const void* in, bool ramp, int* prevVolume,
                          int* volumeInc, short* volume);

/** The kernel of a sample format pair, for a `set` that this processor has. */
template <int MixType, typename TO, typename TI>
VolumeOp volumeKernel(InstructionSet set);

}  // namespace android
