#pragma once

#include <cstdint>

#include "hwsync/hw_sync_mode_t.h"

namespace android {

/** One burst as its header describes it, and where the header lies. */
struct Burst {
    /** From here on the library gives a burst up and searches what follows for a header. */
    static constexpr uint32_t kAbandonedByteCount = 0x80000000;
    static constexpr uint32_t kFixedHeaderByteCount = 20;

    uint64_t index = 0;            // 0 for the first
    uint64_t offset = 0;           // of the header's first byte
    uint64_t headerByteCount = 0;  // as the library counts it
    uint32_t payloadOffset = 0;    // as the header says
    uint32_t payloadByteCount = 0;
    uint64_t ptsNs = 0;
    hw_sync_mode_t mode = HW_SYNC_MODE_AV_SYNC;

    uint64_t headerEnd() const { return offset + headerByteCount; }
    bool isAbandoned() const { return payloadByteCount >= kAbandonedByteCount; }
    uint32_t usedPayloadByteCount() const { return isAbandoned() ? 0 : payloadByteCount; }
};

}  // namespace android
