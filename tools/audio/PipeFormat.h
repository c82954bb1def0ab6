#pragma once

#include <cstdint>

namespace android {

/** How the bytes of a pipe are to be read: interleaved little-endian samples. */
struct PipeFormat {
    enum class Sample { S16, S24, S32, F32 };  // whole numbers of so many bits; floating point

    uint32_t rateHz = 48000;
    uint32_t channelCount = 2;
    Sample sample = Sample::S16;

    uint32_t sampleBytes() const {
        return sample == Sample::S16 ? 2 : sample == Sample::S24 ? 3 : 4;
    }
    uint32_t frameBytes() const { return channelCount * sampleBytes(); }
};

}  // namespace android
