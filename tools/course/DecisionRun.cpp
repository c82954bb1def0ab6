#include "tools/course/DecisionRun.h"

#include <algorithm>
#include <optional>

namespace android {

DecisionRun::DecisionRun(const SyncDecision& decision)
    : first(decision),
      lastBurst(decision.burstIndex),
      lowestLeadNs(decision.leadNs()),
      highestLeadNs(decision.leadNs()) {
    include(decision);
}

bool DecisionRun::goesOnWith(const SyncDecision& decision) const {
    const bool isCorrection =
        first.kind != SyncDecision::Kind::NONE && first.kind != SyncDecision::Kind::FREE_RUN;
    return !isCorrection && decision.kind == first.kind && decision.hasClock == first.hasClock;
}

void DecisionRun::include(const SyncDecision& decision) {
    lastBurst = decision.burstIndex;
    lowestLeadNs = std::min(lowestLeadNs, decision.leadNs());
    highestLeadNs = std::max(highestLeadNs, decision.leadNs());
    if (decision.isHeard) {
        lowestHeardNs =
            isHeard ? std::min(lowestHeardNs, decision.heardLeadNs) : decision.heardLeadNs;
        highestHeardNs =
            isHeard ? std::max(highestHeardNs, decision.heardLeadNs) : decision.heardLeadNs;
        isHeard = true;
    }
}

void DecisionRun::forEach(const DecisionLog& log,
                          const std::function<void(const DecisionRun&)>& take) {
    std::optional<DecisionRun> run;
    for (const SyncDecision& decision : log) {
        if (run && run->goesOnWith(decision)) {
            run->include(decision);
            continue;
        }
        if (run) {
            take(*run);
        }
        run = DecisionRun(decision);
    }
    if (run) {
        take(*run);
    }
}

}  // namespace android
