#include "hwsync/HwSyncHeldBytes.h"

#include <algorithm>
#include <cstring>

namespace android {

size_t HwSyncHeldBytes::peek(const char* data, size_t byteCount,
                             char (&window)[kWindowByteCount]) const {
    const size_t added = std::min(byteCount, kWindowByteCount - mByteCount);
    memcpy(window, mBytes, mByteCount);
    memcpy(window + mByteCount, data, added);
    return mByteCount + added;
}

void HwSyncHeldBytes::append(const char* data, size_t byteCount) {
    memcpy(mBytes + mByteCount, data, byteCount);
    mByteCount += byteCount;
}

bool HwSyncHeldBytes::dropFirst() {
    if (isEmpty()) {
        return false;
    }
    --mByteCount;
    memmove(mBytes, mBytes + 1, mByteCount);
    return true;
}

}  // namespace android
