#pragma once

#include <cstddef>

#include "tools/chart/ReportPage.h"
#include "tools/course/StreamFaults.h"
#include "tools/course/SyncTrack.h"

namespace android {

/** Adds tables of a replay to its page. What is beyond a few hundred rows is told in the caption. */
class ReplayTables {
public:
    explicit ReplayTables(ReportPage& page) : mPage(page) {}

    /** Runs of decisions, and what the clock did between them. */
    void addDecisions(const SyncTrack& track);
    void addFaults(const StreamFaults& faults);

private:
    static constexpr size_t kMostRows = 400;

    ReportPage& mPage;
};

}  // namespace android
