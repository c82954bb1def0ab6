#include "hwsync/HwSyncHeaderV2.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "android/log.h"

namespace android {

namespace {

constexpr const char* kTag = "hwsync_parser";
// No sender's extension or burst is this large: beyond, the header counts as corrupt.
constexpr uint32_t kMaxPlausibleOffset = 64 * 1024;            // bytes
constexpr uint32_t kMaxPlausibleBurstSize = 16 * 1024 * 1024;  // bytes

}  // namespace

HwSyncHeaderV2::HwSyncHeaderV2(Allocate allocate)
    : HwSyncHeaderBase(0x55550002, 0x66660002, kFixedByteCount),
      mHeaderBuf(static_cast<char*>(allocate(1, kFixedByteCount))) {
    if (mHeaderBuf == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to calloc", __func__);
    }
}

HwSyncHeaderV2::~HwSyncHeaderV2() {
    free(mHeaderBuf);
}

bool HwSyncHeaderV2::isHeaderEnded() const {
    return mReceivedSize >= mHeaderSize;
}

void HwSyncHeaderV2::reset() {
    mBurstSize = 0;
    mTimestamp = 0;
    mHeaderSize = mFixedHeaderSize;
    mReceivedSize = 0;
}

int HwSyncHeaderV2::parse(void* data, unsigned long byteCount) {
    const int taken = countUsable(mHeaderBuf, byteCount);
    if (taken < 1) {
        return -1;
    }
    const bool isFixedPartMissing = mReceivedSize < mFixedHeaderSize;
    if (isFixedPartMissing) {
        memcpy(mHeaderBuf + mReceivedSize, data,
               std::min(static_cast<uint32_t>(taken), mFixedHeaderSize - mReceivedSize));
    }
    mReceivedSize += static_cast<uint32_t>(taken);
    if (mReceivedSize >= mFixedHeaderSize) {
        readPayloadOffset();
        if (isFixedPartMissing) {
            warnIfCorrupt();
        }
    }
    if (isHeaderEnded()) {
        decode(mHeaderBuf);
    }
    return taken;
}

void HwSyncHeaderV2::readPayloadOffset() {
    const uint32_t payloadOffset = convertInt32(mHeaderBuf + 16);
    if (payloadOffset < mFixedHeaderSize) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, the payload offset(%u) is invalid ",
                            "parse", payloadOffset);
        return;
    }
    mHeaderSize = payloadOffset;
}

void HwSyncHeaderV2::warnIfCorrupt() const {
    const uint32_t burstSize = convertInt32(mHeaderBuf + 4);
    if (mHeaderSize > kMaxPlausibleOffset || burstSize > kMaxPlausibleBurstSize) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, the header looks corrupt: payload offset %u, burst size %u, "
                            "timestamp %" PRIu64,
                            "parse", convertInt32(mHeaderBuf + 16), burstSize,
                            convertLong64(mHeaderBuf + 8));
    }
}

}  // namespace android
