#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "avsync/AVSyncBridge.h"
#include "tests/support/AudioPathGuard.h"

/** A bridge whose clock is scripted and that notes what it is told, as words: "start", "pts 40". */
class FakeBridge : public android::BridgeHalHidl {
public:
    explicit FakeBridge(uint32_t hwSyncId) : mId(hwSyncId) {}

    uint32_t getHwSyncId() override { return mId; }
    int setLatency(uint64_t latencyNs) override { return note("latency", latencyNs); }
    int start() override { return note("start"); }
    int pause() override { return note("pause"); }
    int resume() override { return note("resume"); }
    int stop() override { return note("stop"); }
    int updateAudioPts(uint64_t ptsNs) override { return note("pts", ptsNs); }
    int getSyncPts(uint64_t& ptsNs) override {
        if (mOnGetSyncPts) {
            mOnGetSyncPts();
        }
        const std::lock_guard<std::mutex> lock(mLock);
        ptsNs = mPositionNs;
        return 0;
    }

    void setPositionMs(uint64_t positionMs) {
        const std::lock_guard<std::mutex> lock(mLock);
        mPositionNs = positionMs * 1'000'000;
    }
    /** The calls since the last look; times in ms. */
    std::vector<std::string> takeCalls() {
        const std::lock_guard<std::mutex> lock(mLock);
        return std::exchange(mCalls, {});
    }

    /** Called by whoever asks for the position; set before. */
    std::function<void()> mOnGetSyncPts;

    /** What the factory answers next; 0 makes bridges. */
    static inline int sRefusal = 0;
    /** The bridge that the factory made last, and what it was asked for. */
    static inline android::sp<FakeBridge> sLast;
    static inline std::pair<unsigned, unsigned> sAsked;

private:
    int note(const std::string& call) {
        const AudioPathGuard::HostCode platform;
        const std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back(call);
        return 0;
    }
    int note(const std::string& call, uint64_t valueNs) {
        const AudioPathGuard::HostCode platform;
        return note(call + " " + std::to_string(valueNs / 1'000'000));
    }

    const uint32_t mId;
    std::mutex mLock;
    uint64_t mPositionNs = 0;
    std::vector<std::string> mCalls;
};
