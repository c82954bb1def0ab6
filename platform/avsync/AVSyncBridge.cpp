#include "avsync/AVSyncBridge.h"

#include <cerrno>
#include <new>

#include "avsync/AVSyncClock.h"

namespace android {

namespace {

/** A bridge to a clock of this process. */
class SoftwareBridge : public BridgeHalHidl {
public:
    explicit SoftwareBridge(uint32_t hwSyncId) : mClock(AVSyncClock::forId(hwSyncId)) {
        mClock->bridgeCall(AVSyncCall::kCreate);
    }

    uint32_t getHwSyncId() override { return mClock->id(); }
    int setLatency(uint64_t latencyNs) override {
        return answer(AVSyncCall::kSetLatency, latencyNs);
    }
    int start() override { return answer(AVSyncCall::kStart); }
    int pause() override { return answer(AVSyncCall::kPause); }
    int resume() override { return answer(AVSyncCall::kResume); }
    int stop() override { return answer(AVSyncCall::kStop); }
    int updateAudioPts(uint64_t ptsNs) override {
        return answer(AVSyncCall::kUpdateAudioPts, ptsNs);
    }
    int getSyncPts(uint64_t& ptsNs) override {
        ptsNs = mClock->bridgeCall(AVSyncCall::kGetSyncPts);
        return 0;
    }

private:
    int answer(AVSyncCall call, uint64_t valueNs = 0) {
        mClock->bridgeCall(call, valueNs);
        return 0;
    }

    const sp<AVSyncClock> mClock;
};

}  // namespace

int AVSyncBridgeFactoryHalHidl::createHwSyncBridge(unsigned int /*kind*/, unsigned int hwSyncId,
                                                   sp<BridgeHalHidl>& bridge) try {
    const int refusal = AVSyncClock::refusal();
    if (refusal == 0) {
        bridge = new SoftwareBridge(hwSyncId);
    }
    return refusal;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

}  // namespace android
