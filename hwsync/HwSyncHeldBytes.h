#pragma once

#include <cstddef>

#include "hwsync/HwSyncHeaderBase.h"

namespace android {

/**
 * The last bytes of a write, up to three, that may begin a magic. They stand in front of the next
 * write's bytes and are judged with them.
 */
class HwSyncHeldBytes {
public:
    static constexpr size_t kWindowByteCount = HwSyncHeaderBase::kMagicByteCount;

    /** Copies the next bytes of the stream, those held and then `data`, until `window` is full or
     *  they end. The bytes copied. */
    size_t peek(const char* data, size_t byteCount, char (&window)[kWindowByteCount]) const;

    /** The bytes must fit. */
    void append(const char* data, size_t byteCount);
    /** Gives up the oldest byte; false if none is held. */
    bool dropFirst();
    void clear() { mByteCount = 0; }

    bool isEmpty() const { return mByteCount == 0; }
    size_t byteCount() const { return mByteCount; }
    char* data() { return mBytes; }

private:
    char mBytes[kWindowByteCount - 1] = {};
    size_t mByteCount = 0;
};

}  // namespace android
