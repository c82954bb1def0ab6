#pragma once

namespace android {

/** The decision for one burst. */
enum HwSyncDecision : int {
    HW_SYNC_DECISION_NONE = 0,
    HW_SYNC_DECISION_ANCHOR = 1,  // set the clock to this burst's timestamp
    HW_SYNC_DECISION_FILL = 2,    // audio leads: insert silence
    HW_SYNC_DECISION_DROP = 3,    // video leads: drop audio
};

/** Decides, burst by burst, how to keep a tunnel stream in step with the AV-sync clock. */
class HwSyncPolicy {
public:
    HwSyncPolicy() = default;
    virtual ~HwSyncPolicy() = default;
    HwSyncPolicy(const HwSyncPolicy&) = delete;
    HwSyncPolicy& operator=(const HwSyncPolicy&) = delete;

    /** The stream starts again: anchor the clock again. Thread: any; never blocks. */
    virtual void setFirstPts() = 0;
    /** The stream's total latency; a change counts as a new start. Thread: any; never blocks. */
    virtual void setLatency(unsigned long latencyNs) = 0;
    /**
     * The HwSyncDecision for a burst with the timestamp `audioPtsNs` while the clock is at
     * `syncPtsNs`. Only fill and drop write `durationMs`. Thread: the writer's.
     */
    [[nodiscard]] virtual int determine(unsigned long audioPtsNs, unsigned long syncPtsNs,
                                        long& durationMs) = 0;
};

}  // namespace android
