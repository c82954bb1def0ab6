#pragma once

#include <atomic>
#include <cstdint>

#include "hwsync/HwSyncBurstObserver.h"
#include "hwsync/HwSyncHeaderBase.h"
#include "hwsync/HwSyncHeaderV2.h"
#include "hwsync/HwSyncHeldBytes.h"
#include "hwsync/hw_sync_parser_t.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/Vector.h"

namespace android {

/**
 * Splits a tunnel stream's bytes into headers and payload. Bursts may be cut into writes anywhere,
 * also inside a magic; bytes that are no header where one is expected are skipped and counted.
 *
 * Threads: the writer, one at a time, calls parse() and alone owns the state of the search. The
 * other operations may be called on any thread, also while parse() runs. Observers are called with
 * mLock held; a callback may call reset(), but registerObserver() and unregisterObserver() would
 * wait for themselves there.
 */
class HwSyncBurstParser : public hw_sync_parser_t, public RefBase {
public:
    explicit HwSyncBurstParser(const sp<HwSyncHeaderBase>& header = new HwSyncHeaderV2);
    ~HwSyncBurstParser() override;

    /** Blocks while a callback runs. 0, also for one that is registered; -EINVAL: null; -ENOMEM. */
    [[nodiscard]] int registerObserver(const sp<HwSyncBurstObserver>& observer)
        EXCLUDES(mTurnstile, mLock);
    /** Blocks while a callback runs; none comes afterwards. -EINVAL: null, or not registered. */
    int unregisterObserver(const sp<HwSyncBurstObserver>& observer) EXCLUDES(mTurnstile, mLock);

    /**
     * Feeds one write and blocks as long as the observers do. The bytes consumed: all of them, of
     * up to 2^31 - 1; of more, what the count's low 32 bits say as a signed number, if that is
     * positive. -EINVAL: null data; -1: the header has no store.
     */
    int parse(const void* data, unsigned long byteCount) EXCLUDES(mTurnstile, mLock);

    /**
     * Forgets the burst under way and searches for the next header. Never blocks. Takes effect
     * before the next byte is looked at: inside a parse() the run being delivered is finished, and
     * what follows it in that write is searched. The count of skipped bytes goes on.
     */
    void reset();

private:
    enum State : uint32_t { STATE_FIND_HEADER, STATE_READ_HEADER, STATE_READ_BODY };

    // One step each, on the writer's thread: the bytes it consumed, 0 for a change of state alone,
    // or a negative status.
    [[nodiscard]] int parse_l(void* data, unsigned long byteCount);
    [[nodiscard]] int findHeader_l(void* data, unsigned long byteCount);
    [[nodiscard]] int parseHeader_l(void* data, unsigned long byteCount);
    [[nodiscard]] int parseBody_l(void* data, unsigned long byteCount);

    void announceHeader_l();
    bool isBodyEnd_l() const { return mPayloadLength >= mBurstSize; }
    int64_t getAvailableBufferLength_l() const;  // payload bytes still due; 0 if not to be counted
    void endBurst_l();
    void resetBody_l();
    void startRecordGarbage(unsigned long byteCount);
    void stopRecordGarbage();

    /** Gives way to a control thread that waits for mLock. The callbacks of a busy stream follow
     *  each other so closely that it could miss its turn many times over. */
    void letControlIn() EXCLUDES(mTurnstile);

    uint32_t mState = STATE_FIND_HEADER;
    // Taken before mLock; held by a control thread until it is done.
    Mutex mTurnstile{"parser turn"};
    Mutex mLock{"parser"};  // held during callbacks; then whatever the observers take
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
