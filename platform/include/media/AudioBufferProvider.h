#pragma once

#include <stddef.h>
#include <stdint.h>

#include "utils/Errors.h"

namespace android {

/** A source of frames that are read in place: get a region, read it, give it back. */
class AudioBufferProvider {
public:
    struct Buffer {
        void* raw = nullptr;    // the first frame
        size_t frameCount = 0;  // in: frames wanted; out: frames handed out
    };

    virtual ~AudioBufferProvider() = default;
    virtual status_t getNextBuffer(Buffer* buffer, int64_t presentationTime) = 0;
    virtual void releaseBuffer(Buffer* buffer) = 0;
};

}  // namespace android
