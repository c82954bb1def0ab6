#pragma once

#include <cstdint>

namespace android {

/** The hand-out operations that a FrameBuffer allows, one bit each. */
enum FrameBufferMode : uint32_t {
    FRAME_BUFFER_OBTAIN_WRITE = 1,
    FRAME_BUFFER_RELEASE_WRITE = 2,
    FRAME_BUFFER_OBTAIN_READ = 4,
    FRAME_BUFFER_RELEASE_READ = 8,
    FRAME_BUFFER_ALL = 15,
};

}  // namespace android
