#include "hwsync/HwSyncDefaultPolicy.h"

#include "android/log.h"

namespace android {

namespace {

constexpr const char* kTag = "hwsync_policy";
constexpr unsigned long kNsPerMs = 1'000'000;

using Printed = unsigned long long;  // what %llu takes

/** `correction` for a lead between the bounds; the upper bound is tested first. */
int decide(unsigned long leadMs, unsigned long upperMs, unsigned long thresholdMs,
           HwSyncDecision correction, long& durationMs) {
    if (leadMs > upperMs) {
        return HW_SYNC_DECISION_ANCHOR;
    }
    if (leadMs <= thresholdMs) {
        return HW_SYNC_DECISION_NONE;
    }
    durationMs = static_cast<long>(leadMs);
    return correction;
}

}  // namespace

HwSyncDefaultPolicy::HwSyncDefaultPolicy() {
    const auto read = [this](const char* property, unsigned long& valueMs) {
        HwSyncDefaultPolicy::getAVSyncParameter(property, valueMs);
    };
    read(kAudioLeadThreshold.property, mAudioLeadingThresthold);
    read(kAudioLeadUpper.property, mAudioLeadingUpperBound);
    read(kVideoLeadThreshold.property, mVideoLeadingThresthold);
    read(kVideoLeadUpper.property, mVideoLeadingUpperBound);
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "%s, mAudioLeadingUpperBound %llu, mAudioLeadingThresthold %llu,"
                        "mVideoLeadingUpperBound %llu, mVideoLeadingThresthold %llu",
                        __func__, static_cast<Printed>(mAudioLeadingUpperBound),
                        static_cast<Printed>(mAudioLeadingThresthold),
                        static_cast<Printed>(mVideoLeadingUpperBound),
                        static_cast<Printed>(mVideoLeadingThresthold));
}

void HwSyncDefaultPolicy::getAVSyncParameter(const char* property, unsigned long& valueMs) {
    HwSyncBound::read(property, valueMs);
}

void HwSyncDefaultPolicy::setFirstPts() {
    mFirstPts.store(true, std::memory_order_release);
}

void HwSyncDefaultPolicy::setLatency(unsigned long latencyNs) {
    const uint64_t latencyMs = latencyNs / kNsPerMs;
    const uint64_t formerMs = mAudioLatencyMs.exchange(latencyMs, std::memory_order_relaxed);
    if (formerMs == latencyMs) {
        return;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s, audio latency change from %llums to %llums",
                        __func__, static_cast<Printed>(formerMs), static_cast<Printed>(latencyMs));
    setFirstPts();
}

int HwSyncDefaultPolicy::start(uint64_t ptsMs) {
    const uint64_t latencyMs = mAudioLatencyMs.load(std::memory_order_relaxed);
    if (ptsMs >= latencyMs) {
        return HW_SYNC_DECISION_ANCHOR;
    }
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "%s, audio PTS(%llums) is less than audio latency(%llums), delay to update "
                        "until audio PTS catches up latency",
                        "determine", static_cast<Printed>(ptsMs), static_cast<Printed>(latencyMs));
    setFirstPts();
    return HW_SYNC_DECISION_NONE;
}

int HwSyncDefaultPolicy::determine(unsigned long audioPtsNs, unsigned long syncPtsNs,
                                   long& durationMs) {
    const unsigned long ptsMs = audioPtsNs / kNsPerMs;
    if (mFirstPts.exchange(false, std::memory_order_acquire)) {
        return start(ptsMs);
    }
    const unsigned long syncMs = syncPtsNs / kNsPerMs;
    if (ptsMs > syncMs) {
        return decide(ptsMs - syncMs, mAudioLeadingUpperBound, mAudioLeadingThresthold,
                      HW_SYNC_DECISION_FILL, durationMs);
    }
    if (ptsMs < syncMs) {
        return decide(syncMs - ptsMs, mVideoLeadingUpperBound, mVideoLeadingThresthold,
                      HW_SYNC_DECISION_DROP, durationMs);
    }
    return HW_SYNC_DECISION_NONE;
}

}  // namespace android
