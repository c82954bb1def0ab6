#pragma once

#include <atomic>
#include <cstdint>

#include "hwsync/HwSyncBound.h"
#include "hwsync/HwSyncPolicy.h"

namespace android {

/**
 * Tolerates a lead of audio or video up to a threshold, corrects it up to an upper bound and
 * anchors the clock again beyond that. After a start it waits for the first timestamp that is not
 * below the latency, and anchors the clock there.
 *
 * Properties, in ms, read once by the constructor:
 *   vendor.audio.hwsync.alead.threshold (300)   vendor.audio.hwsync.alead.upper (1000)
 *   vendor.audio.hwsync.vlead.threshold (100)   vendor.audio.hwsync.vlead.upper (1000)
 */
class HwSyncDefaultPolicy : public HwSyncPolicy {
public:
    HwSyncDefaultPolicy();

    void setFirstPts() override;
    void setLatency(unsigned long latencyNs) override;
    int determine(unsigned long audioPtsNs, unsigned long syncPtsNs, long& durationMs) override;
    /** As HwSyncBound::read(). */
    virtual void getAVSyncParameter(const char* property, unsigned long& valueMs);

private:
    /** The decision for a burst at `ptsMs` while a start is pending. */
    int start(uint64_t ptsMs);

    // A new start is pending. Set (release) after the latency that caused it; taken (acquire)
    // before that latency is read, so that a start requested meanwhile is never lost.
    std::atomic<bool> mFirstPts{false};
    std::atomic<uint64_t> mAudioLatencyMs{0};
    // In ms; the constructor fixes these four.
    unsigned long mAudioLeadingUpperBound = kAudioLeadUpper.defaultMs;
    unsigned long mAudioLeadingThresthold = kAudioLeadThreshold.defaultMs;
    unsigned long mVideoLeadingUpperBound = kVideoLeadUpper.defaultMs;
    unsigned long mVideoLeadingThresthold = kVideoLeadThreshold.defaultMs;
};

}  // namespace android
