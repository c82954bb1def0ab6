#pragma once

#include <cstdint>
#include <vector>

#include "buffer/FrameBuffer.h"

/** 16-bit stereo frames that carry their own number: left its low half, right its high half. */
inline std::vector<uint32_t> numberedFrames(uint32_t first, size_t frameCount) {
    std::vector<uint32_t> frames(frameCount);
    for (uint32_t& frame : frames) {
        frame = first++;
    }
    return frames;
}

/** A stereo buffer, 16-bit unless told otherwise. */
inline android::sp<android::FrameBuffer> makeBuffer(size_t frameCount,
                                                    audio_format_t format = AUDIO_FORMAT_PCM_16_BIT,
                                                    uint32_t channelMask = AUDIO_CHANNEL_OUT_STEREO,
                                                    size_t position = 0) {
    return new android::FrameBuffer(format, channelMask, frameCount, false, position, position);
}

/** Everything a buffer holds, as T. */
template <typename T>
std::vector<T> drain(android::FrameBuffer& buffer) {
    std::vector<T> samples(buffer.availableToRead() * buffer.mFrameSize / sizeof(T));
    buffer.read(samples.data(), buffer.availableToRead());
    return samples;
}
