#pragma once

#include <cstdlib>

#include "hwsync/HwSyncHeaderBase.h"

namespace android {

/** A header of version 1: only the shared fields, 16 bytes. */
class HwSyncHeaderV1 : public HwSyncHeaderBase {
public:
    explicit HwSyncHeaderV1(Allocate allocate = calloc);
    ~HwSyncHeaderV1() override;

    bool isHeaderEnded() const override;
    /** The decoded fields keep their values. */
    void reset() override;
    int parse(void* data, unsigned long byteCount) override;

private:
    static constexpr uint32_t kHeaderByteCount = 16;

    char* const mHeaderBuf;  // null: takes nothing
};

}  // namespace android
