#include "hwsync/HwSyncHeaderV1.h"

#include <cstring>

namespace android {

HwSyncHeaderV1::HwSyncHeaderV1(Allocate allocate)
    : HwSyncHeaderBase(0x55550001, 0x66660001, kHeaderByteCount),
      mHeaderBuf(static_cast<char*>(allocate(1, kHeaderByteCount))) {}

HwSyncHeaderV1::~HwSyncHeaderV1() {
    free(mHeaderBuf);
}

bool HwSyncHeaderV1::isHeaderEnded() const {
    return mReceivedSize >= kHeaderByteCount;
}

void HwSyncHeaderV1::reset() {
    mReceivedSize = 0;
}

int HwSyncHeaderV1::parse(void* data, unsigned long byteCount) {
    const int taken = countUsable(mHeaderBuf, byteCount);
    if (taken < 1) {
        return -1;
    }
    memcpy(mHeaderBuf + mReceivedSize, data, static_cast<size_t>(taken));
    mReceivedSize += static_cast<uint32_t>(taken);
    if (isHeaderEnded()) {
        decode(mHeaderBuf);
    }
    return taken;
}

}  // namespace android
