#pragma once

namespace android {

/** What determine() answers for one burst. */
enum HwSyncDecision : int {
    HW_SYNC_DECISION_NONE = 0,
    HW_SYNC_DECISION_ANCHOR = 1,  // the clock goes on from this burst's timestamp
    HW_SYNC_DECISION_FILL = 2,    // audio leads: insert silence
    HW_SYNC_DECISION_DROP = 3,    // video leads: drop audio
};

/** Decides, burst by burst, what keeps a tunnel stream in step with the AV-sync clock. */
class HwSyncPolicy {
public:
    HwSyncPolicy() = default;
    virtual ~HwSyncPolicy() = default;
    HwSyncPolicy(const HwSyncPolicy&) = delete;
    HwSyncPolicy& operator=(const HwSyncPolicy&) = delete;

    /** The stream starts anew: the clock is to be anchored again. Thread: any; never blocks. */
    virtual void setFirstPts() = 0;
    /** The stream's total latency; a change counts as a new start. Thread: any; never blocks. */
    virtual void setLatency(unsigned long latencyNs) = 0;
    /**
     * The HwSyncDecision for a burst with the timestamp `audioPtsNs`, the clock being at
     * `syncPtsNs`. Only a fill and a drop write `durationMs`. Thread: the writer's.
     */
    [[nodiscard]] virtual int determine(unsigned long audioPtsNs, unsigned long syncPtsNs,
                                        long& durationMs) = 0;
};

}  // namespace android
