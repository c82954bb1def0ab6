/**
 * The AV-sync bridge: a stream's way to the clock that audio and video of one hw-sync id share.
 * Threads: any; the operations of one bridge may be called from several threads at once.
 */
#pragma once

#include <cstdint>

#include "utils/RefBase.h"

namespace android {

/** Times are in ns. A status is 0 or a negative errno value. */
class BridgeHalHidl : public RefBase {
public:
    /** The id that the bridge was made for. */
    virtual uint32_t getHwSyncId() = 0;
    /** Tells how long after its write audio is heard. */
    virtual int setLatency(uint64_t latencyNs) = 0;
    virtual int start() = 0;
    /** The clock stands still until resume(). */
    virtual int pause() = 0;
    virtual int resume() = 0;
    /** The clock loses its position. */
    virtual int stop() = 0;
    /** Audio of this timestamp is being played: the clock goes on from here. */
    virtual int updateAudioPts(uint64_t ptsNs) = 0;
    virtual int getSyncPts(uint64_t& ptsNs) = 0;
};

/** Makes bridges. */
class AVSyncBridgeFactoryHalHidl : public virtual RefBase {
public:
    /** 0 and a bridge in `bridge`, or a negative errno value with `bridge` as it was. The first
     *  argument selects the kind of bridge; streams pass 128. */
    int createHwSyncBridge(unsigned int kind, unsigned int hwSyncId, sp<BridgeHalHidl>& bridge);
};

}  // namespace android
