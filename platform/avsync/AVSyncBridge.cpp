#include "avsync/AVSyncBridge.h"

#include "avsync/AVSyncClock.h"

namespace android {

namespace {

/** A bridge to a clock of this process. Every call stands in the clock's record. */
class SoftwareBridge : public BridgeHalHidl {
public:
    explicit SoftwareBridge(uint32_t hwSyncId) : mClock(AVSyncClock::forId(hwSyncId)) {
        mClock->record(AVSyncCall::kCreate, 0);
    }

    uint32_t getHwSyncId() override { return mClock->id(); }
    int setLatency(uint64_t latencyNs) override {
        mClock->record(AVSyncCall::kSetLatency, latencyNs);
        mClock->setLatencyNs(latencyNs);
        return 0;
    }
    int start() override {
        mClock->record(AVSyncCall::kStart, 0);
        mClock->resume();
        return 0;
    }
    int pause() override {
        mClock->record(AVSyncCall::kPause, 0);
        mClock->pause();
        return 0;
    }
    int resume() override {
        mClock->record(AVSyncCall::kResume, 0);
        mClock->resume();
        return 0;
    }
    int stop() override {
        mClock->record(AVSyncCall::kStop, 0);
        mClock->clear();
        return 0;
    }
    int updateAudioPts(uint64_t ptsNs) override {
        mClock->record(AVSyncCall::kUpdateAudioPts, ptsNs);
        mClock->setPositionNs(ptsNs);
        return 0;
    }
    int getSyncPts(uint64_t& ptsNs) override {
        ptsNs = mClock->positionNs();
        mClock->record(AVSyncCall::kGetSyncPts, ptsNs);
        return 0;
    }

private:
    const sp<AVSyncClock> mClock;
};

}  // namespace

int AVSyncBridgeFactoryHalHidl::createHwSyncBridge(unsigned int /*kind*/, unsigned int hwSyncId,
                                                   sp<BridgeHalHidl>& bridge) {
    const int refusal = AVSyncClock::refusal();
    if (refusal == 0) {
        bridge = new SoftwareBridge(hwSyncId);
    }
    return refusal;
}

}  // namespace android
