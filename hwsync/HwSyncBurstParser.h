#pragma once

#include <atomic>
#include <cstdint>

#include "hwsync/HwSyncBurstObserver.h"
#include "hwsync/HwSyncHeaderBase.h"
#include "hwsync/HwSyncHeaderV2.h"
#include "hwsync/HwSyncHeldBytes.h"
#include "hwsync/hw_sync_parser_t.h"
#include "sync/TurnstileLock.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/Vector.h"

namespace android {

/**
 * Splits a tunnel stream's bytes into headers and payload. Writes may cut a burst anywhere, even
 * inside a magic. Bytes that are not a header where one is expected are skipped and counted.
 *
 * Threads: the writer, one at a time, calls parse() and alone owns the state of the search. Any
 * thread may call the other operations, even while parse() runs. The stream, the only observer, is
 * called with mLock held; it may call reset(), but would wait for itself in registerObserver() and
 * unregisterObserver().
 */
class HwSyncBurstParser : public hw_sync_parser_t, public RefBase {
public:
    explicit HwSyncBurstParser(const sp<HwSyncHeaderBase>& header = new HwSyncHeaderV2);
    ~HwSyncBurstParser() override;

    /** Blocks while a callback runs. 0, also if already registered; -EINVAL: null; -ENOMEM. */
    [[nodiscard]] int registerObserver(const sp<HwSyncBurstObserver>& observer) EXCLUDES(mLock);
    /** Blocks while a callback runs; none comes afterwards. -EINVAL: null, or not registered. */
    int unregisterObserver(const sp<HwSyncBurstObserver>& observer) EXCLUDES(mLock);

    /**
     * Parses one write and blocks as long as the observer does. Returns the bytes consumed: all, up
     * to 2^31 - 1. Of a larger count, the low 32 bits count, as a signed number, if positive.
     * -EINVAL: null data; -1: the header has no store.
     */
    int parse(const void* data, unsigned long byteCount) EXCLUDES(mLock);

    /**
     * Forgets the current burst and searches for the next header. Never blocks. Takes effect before
     * the next byte is parsed: a parse() in progress finishes the run that it is delivering and
     * searches the rest of its write. The count of skipped bytes goes on.
     */
    void reset();
    /** A reset has not taken effect yet: what is being announced or delivered came before it. */
    bool isResetRequested() const { return mResetRequested.load(std::memory_order_relaxed); }

private:
    using ParserLock = TurnstileLock<Mutex>;
    enum State : uint32_t { STATE_FIND_HEADER, STATE_READ_HEADER, STATE_READ_BODY };

    // One step each, on the writer's thread. They return the bytes consumed, 0 for a mere change of
    // state, or a negative status.
    [[nodiscard]] int parse_l(void* data, unsigned long byteCount);
    [[nodiscard]] int findHeader(void* data, unsigned long byteCount);
    [[nodiscard]] int parseHeader_l(void* data, unsigned long byteCount);
    [[nodiscard]] int parseBody_l(void* data, unsigned long byteCount);

    void announceHeader();
    bool isBodyEnd_l() const { return mPayloadLength >= mBurstSize; }
    int64_t getAvailableBufferLength_l() const;  // payload bytes still due; 0 if unknown
    void endBurst();
    void resetBody_l();
    void startRecordGarbage(unsigned long byteCount);
    void stopRecordGarbage();

    uint32_t mState = STATE_FIND_HEADER;
    // Held during callbacks; then whatever the observers take. A busy stream's callbacks follow each
    // other so closely that a control thread could miss its turn many times.
    ParserLock mLock{"parser turn", "parser"};
    Vector<sp<HwSyncBurstObserver>> mObservers GUARDED_BY(mLock);
    const sp<HwSyncHeaderBase> mHeader;
    HwSyncHeldBytes mHeldBytes;   // empty except in STATE_FIND_HEADER
    uint64_t mBurstSize = 0;      // payload bytes of the current burst; 0: none
    uint64_t mPayloadLength = 0;  // of those, delivered
    uint64_t mGarbageSize = 0;    // bytes skipped since the last header
    // Any thread sets it, the writer clears it and resets its own state: it orders nothing else.
    std::atomic<bool> mResetRequested{false};
};

}  // namespace android
