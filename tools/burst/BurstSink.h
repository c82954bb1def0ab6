#pragma once

#include <cstdint>

#include "tools/burst/Burst.h"

namespace android {

/** Hears what a BurstScanner finds, in the order of the offsets. */
class BurstSink {
public:
    virtual ~BurstSink() = default;

    /** A run of bytes between two headers that belongs to no burst is over. */
    virtual void onGarbage(uint64_t offset, uint64_t byteCount) = 0;
    /** A header is complete. */
    virtual void onBurst(const Burst& burst) = 0;
};

}  // namespace android
