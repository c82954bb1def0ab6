#include "audio_utils/channels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

void adjustFrames(const uint8_t* source, size_t inFrameByteCount, uint8_t* target,
                  size_t outFrameByteCount, size_t copiedByteCount, size_t frameCount) {
    for (size_t frame = 0; frame < frameCount; ++frame) {
        memcpy(target, source, copiedByteCount);
        memset(target + copiedByteCount, 0, outFrameByteCount - copiedByteCount);
        source += inFrameByteCount;
        target += outFrameByteCount;
    }
}

/** The same for sizes that the compiler knows: moves of a word instead of two calls a frame. */
template <size_t kOutFrameByteCount, size_t kCopiedByteCount>
void adjustFrames(const uint8_t* __restrict source, size_t inFrameByteCount,
                  uint8_t* __restrict target, size_t frameCount) {
    for (size_t frame = 0; frame < frameCount; ++frame) {
        uint8_t samples[kOutFrameByteCount] = {};
        memcpy(samples, source + frame * inFrameByteCount, kCopiedByteCount);
        memcpy(target + frame * kOutFrameByteCount, samples, kOutFrameByteCount);
    }
}

}  // namespace

size_t adjust_channels(const void* in, size_t inChannelCount, void* out, size_t outChannelCount,
                       unsigned sampleByteCount, size_t inByteCount) {
    if (inChannelCount == 0 || outChannelCount == 0 || sampleByteCount < 1 || sampleByteCount > 4) {
        return 0;
    }
    const size_t inFrameByteCount = inChannelCount * sampleByteCount;
    const size_t outFrameByteCount = outChannelCount * sampleByteCount;
    const size_t copiedByteCount = std::min(inFrameByteCount, outFrameByteCount);
    const size_t frameCount = inByteCount / inFrameByteCount;
    auto* source = static_cast<const uint8_t*>(in);
    auto* target = static_cast<uint8_t*>(out);
    // To stereo of 16 and 32 bits, from mono and from more.
    if (outFrameByteCount == 4 && copiedByteCount == 2) {
        adjustFrames<4, 2>(source, inFrameByteCount, target, frameCount);
    } else if (outFrameByteCount == 4 && copiedByteCount == 4) {
        adjustFrames<4, 4>(source, inFrameByteCount, target, frameCount);
    } else if (outFrameByteCount == 8 && copiedByteCount == 4) {
        adjustFrames<8, 4>(source, inFrameByteCount, target, frameCount);
    } else if (outFrameByteCount == 8 && copiedByteCount == 8) {
        adjustFrames<8, 8>(source, inFrameByteCount, target, frameCount);
    } else {
        adjustFrames(source, inFrameByteCount, target, outFrameByteCount, copiedByteCount,
                     frameCount);
    }
    return frameCount * outFrameByteCount;
}
