#include "audio_utils/channels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

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
    for (size_t frame = 0; frame < frameCount; ++frame) {
        memcpy(target, source, copiedByteCount);
        memset(target + copiedByteCount, 0, outFrameByteCount - copiedByteCount);
        source += inFrameByteCount;
        target += outFrameByteCount;
    }
    return frameCount * outFrameByteCount;
}
