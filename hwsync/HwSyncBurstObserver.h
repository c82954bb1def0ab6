#pragma once

#include "hwsync/hw_sync_mode_t.h"
#include "utils/RefBase.h"

namespace android {

/**
 * Receives the headers and payload that a HwSyncBurstParser finds. The results are ignored.
 * Threads: both run on the writer's thread with the parser's lock held. They must not register or
 * unregister an observer of that parser; they may call its reset().
 */
class HwSyncBurstObserver : public virtual RefBase {
public:
    ~HwSyncBurstObserver() override = default;

    /** A header is complete; `burstByteCount` bytes of payload are announced. */
    virtual int onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int burstByteCount,
                                    unsigned long ptsNs) = 0;
    /** The next bytes of that payload, in the writer's own buffer: valid during the call only. */
    virtual int onBurstPayloadParsed(const void* data, unsigned long byteCount) = 0;
};

}  // namespace android
