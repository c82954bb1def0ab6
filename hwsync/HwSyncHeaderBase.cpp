#include "hwsync/HwSyncHeaderBase.h"

#include <algorithm>

#include "android/log.h"

namespace android {

namespace {

constexpr const char* kTag = "hwsync_parser";

uint64_t readBigEndian(const char* bytes, size_t byteCount) {
    uint64_t value = 0;
    for (size_t i = 0; i < byteCount; ++i) {
        value = value << 8 | static_cast<uint8_t>(bytes[i]);
    }
    return value;
}

}  // namespace

bool HwSyncHeaderBase::isHwSyncHeader(const char* bytes) const {
    return parseMode(bytes) != HW_SYNC_MODE_INVALID;
}

bool HwSyncHeaderBase::mayBeginHwSyncHeader(const char* bytes, size_t byteCount) const {
    const uint64_t begin = readBigEndian(bytes, byteCount);
    const size_t missingBitCount = 8 * (kMagicByteCount - byteCount);
    return begin == mAvSyncMagic >> missingBitCount || begin == mFreeRunMagic >> missingBitCount;
}

hw_sync_mode_t HwSyncHeaderBase::parseMode(const char* bytes) const {
    const uint64_t magic = convertInt32(bytes);
    if (magic == mAvSyncMagic) {
        return HW_SYNC_MODE_AV_SYNC;
    }
    return magic == mFreeRunMagic ? HW_SYNC_MODE_FREE_RUN : HW_SYNC_MODE_INVALID;
}

uint32_t HwSyncHeaderBase::convertInt32(const char* bytes) {
    return static_cast<uint32_t>(readBigEndian(bytes, sizeof(uint32_t)));
}

uint64_t HwSyncHeaderBase::convertLong64(const char* bytes) {
    return readBigEndian(bytes, sizeof(uint64_t));
}

int HwSyncHeaderBase::countUsable(const char* store, unsigned long byteCount) const {
    // Without a store there is no room.
    const uint32_t space = store != nullptr ? mHeaderSize - mReceivedSize : 0;
    const int usable = static_cast<int>(std::min<uint64_t>(space, byteCount));
    if (usable < 1) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, no available space to store header, bytes %d", "parse",
                            static_cast<int>(byteCount));
        return -1;
    }
    return usable;
}

void HwSyncHeaderBase::decode(const char* store) {
    const hw_sync_mode_t mode = parseMode(store);
    if (mode == HW_SYNC_MODE_INVALID) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Invalid tunnel mode", "parse");
    } else {
        mMode = mode;
    }
    mBurstSize = convertInt32(store + 4);
    mTimestamp = convertLong64(store + 8);
}

}  // namespace android
