#pragma once

#include <cstdlib>

#include "hwsync/HwSyncHeaderBase.h"

namespace android {

/**
 * A header of version 2. After the shared fields:
 *
 *     offset  bytes
 *         16      4  payload offset: the whole header's length, 20 or more
 *         20    ...  extension up to the payload offset, taken and discarded
 *
 * Invariant: mReceivedSize <= mHeaderSize, and mHeaderSize is 20 until the offset has been read.
 * So the count does not wrap, however long the extension is.
 */
class HwSyncHeaderV2 : public HwSyncHeaderBase {
public:
    explicit HwSyncHeaderV2(Allocate allocate = calloc);
    ~HwSyncHeaderV2() override;

    bool isHeaderEnded() const override;
    /** The mode keeps its value. */
    void reset() override;
    int parse(void* data, unsigned long byteCount) override;

private:
    static constexpr uint32_t kFixedByteCount = 20;

    void readPayloadOffset();
    /** Once for each header, as soon as the fields are there: a corrupt header may swallow the
     *  stream for hours before it is complete. */
    void warnIfCorrupt() const;

    const uint32_t mFixedHeaderSize = kFixedByteCount;  // bytes stored
    char* const mHeaderBuf;                             // null: takes nothing
};

}  // namespace android
