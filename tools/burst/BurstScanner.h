#pragma once

#include <cstddef>
#include <cstdint>

#include "hwsync/HwSyncBurstParser.h"
#include "tools/burst/BurstSink.h"

namespace android {

/**
 * Finds headers and garbage in a stream of bytes with the library's own parser, and says where they
 * lie. The parser takes its header as an object, and that object sees a pointer to every header
 * byte: this gives exact offsets at the parser's own speed, however the stream is cut.
 * Threads: one at a time.
 */
class BurstScanner {
public:
    explicit BurstScanner(BurstSink& sink);
    ~BurstScanner();
    BurstScanner(const BurstScanner&) = delete;
    BurstScanner& operator=(const BurstScanner&) = delete;

    /** The next bytes of the stream, up to 2^31 - 1. */
    void feed(const void* data, size_t byteCount);
    /** The stream is over: a last run of garbage is reported. */
    void finish();

    uint64_t byteCount() const { return mEndOffset; }
    uint64_t burstCount() const { return mBurstCount; }
    /** Magics of version 1 among the garbage. */
    uint64_t versionOneCount() const { return mVersionOneCount; }
    /** Bytes of a header that the stream's end cut; 0: none did. */
    uint64_t cutHeaderByteCount() const { return mIsInHeader ? mEndOffset - mHeaderOffset : 0; }
    /** Payload that the last header announced and the stream does not have. */
    uint64_t missingPayloadByteCount() const { return mDueByteCount; }

private:
    class TracedHeader;
    class Listener;

    /** The offset of header bytes at `data`. Those not in the current write were held back from the
     *  writes before, and lie right in front of it. */
    uint64_t offsetOf(const void* data, size_t byteCount) const;
    void beginHeader(uint64_t offset);

    BurstSink& mSink;
    sp<TracedHeader> mHeader;
    sp<HwSyncBurstParser> mParser;
    const uint8_t* mData = nullptr;  // the current write
    uint64_t mDataOffset = 0;
    uint64_t mEndOffset = 0;  // of all that was fed
    uint64_t mBurstCount = 0;
    uint64_t mVersionOneCount = 0;
    uint64_t mHeaderOffset = 0;
    uint64_t mSearchOffset = 0;  // where the last burst's payload ends so far
    uint64_t mDueByteCount = 0;  // of it, still to come
    bool mIsInHeader = false;
};

}  // namespace android
