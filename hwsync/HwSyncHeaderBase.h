#pragma once

#include <cstddef>
#include <cstdint>

#include "hwsync/hw_sync_mode_t.h"
#include "utils/RefBase.h"

namespace android {

/**
 * Collects one burst header from pieces and decodes it. Numbers are big-endian on the wire. Every
 * version begins with the same fields:
 *
 *     offset  bytes
 *          0      4  magic: 0x5555 or 0x6666 (the mode), then the version
 *          4      4  burst size: payload bytes after the header
 *          8      8  presentation timestamp, ns
 *
 * One header: parse() until isHeaderEnded(), read the decoded fields, reset().
 * Threads: one at a time; the parser that owns the header ensures it.
 */
class HwSyncHeaderBase : public virtual RefBase {
public:
    static constexpr size_t kMagicByteCount = 4;

    ~HwSyncHeaderBase() override = default;

    virtual bool isHeaderEnded() const = 0;
    /** Prepares for the next header. */
    virtual void reset() = 0;
    /** Whether the four bytes at `bytes` are a magic of this version. */
    virtual bool isHwSyncHeader(const char* bytes) const;
    /** Takes header bytes, and decodes the header once complete. Returns the bytes taken, at least
     *  1; -1: the header is complete or has no store. Only reads `data`. */
    [[nodiscard]] virtual int parse(void* data, unsigned long byteCount) = 0;

    /** Whether a magic of this version begins with these up to three bytes. */
    bool mayBeginHwSyncHeader(const char* bytes, size_t byteCount) const;
    /** The mode selected by the four bytes at `bytes`. */
    hw_sync_mode_t parseMode(const char* bytes) const;
    static uint32_t convertInt32(const char* bytes);
    static uint64_t convertLong64(const char* bytes);

protected:
    /** Allocates header stores, as calloc() does. */
    using Allocate = void* (*)(size_t count, size_t byteCount);

    HwSyncHeaderBase(uint32_t avSyncMagic, uint32_t freeRunMagic, uint32_t headerByteCount)
        : mAvSyncMagic(avSyncMagic), mFreeRunMagic(freeRunMagic), mHeaderSize(headerByteCount) {}

    /** How many of `byteCount` bytes still belong to the header; -1, logged, if there are none. */
    [[nodiscard]] int countUsable(const char* store, unsigned long byteCount) const;
    /** Reads the fields that all versions share. */
    void decode(const char* store);

    const uint64_t mAvSyncMagic;
    const uint64_t mFreeRunMagic;

public:
    uint32_t mHeaderSize;        // bytes; a version may learn more while it reads
    uint32_t mReceivedSize = 0;  // bytes taken so far
    // Valid from isHeaderEnded() to reset().
    uint32_t mBurstSize = 0;  // bytes
    uint64_t mTimestamp = 0;  // ns
    hw_sync_mode_t mMode = HW_SYNC_MODE_AV_SYNC;
};

}  // namespace android
