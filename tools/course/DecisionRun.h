#pragma once

#include <cstdint>
#include <functional>

#include "tools/course/DecisionLog.h"

namespace android {

/** Decisions one after the other that say the same; a correction stands alone. */
struct DecisionRun {
    SyncDecision first;
    uint64_t lastBurst;
    int64_t lowestLeadNs;  // valid where the first one has a clock
    int64_t highestLeadNs;
    bool isHeard = false;  // any of them
    int64_t lowestHeardNs = 0;
    int64_t highestHeardNs = 0;

    uint64_t count() const { return lastBurst - first.burstIndex + 1; }

    /** Calls `take` with every run, in order. Throws ToolError as the log does. */
    static void forEach(const DecisionLog& log,
                        const std::function<void(const DecisionRun&)>& take);

private:
    explicit DecisionRun(const SyncDecision& decision);
    bool goesOnWith(const SyncDecision& decision) const;
    void include(const SyncDecision& decision);
};

}  // namespace android
