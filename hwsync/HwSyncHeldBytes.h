#pragma once

#include <cstddef>

#include "hwsync/HwSyncHeaderBase.h"

namespace android {

/**
 * Up to three last bytes of a write that may begin a magic. They are tested together with the next
 * write's bytes, in front of them.
 */
class HwSyncHeldBytes {
public:
    static constexpr size_t kWindowByteCount = HwSyncHeaderBase::kMagicByteCount;

    /** Copies the held bytes and then `data`, until `window` is full or they end. Returns the bytes
     *  copied. */
    size_t peek(const char* data, size_t byteCount, char (&window)[kWindowByteCount]) const;

    /** The bytes must fit. */
    void append(const char* data, size_t byteCount);
    /** Drops the oldest byte; false if none is held. */
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
