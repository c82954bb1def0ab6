#pragma once

#include <string>

#include "tools/audio/PcmFormat.h"
#include "tools/chart/ReportPage.h"
#include "tools/course/SyncTrack.h"
#include "tools/replay/ReplayRecorder.h"
#include "tools/report/ReplayReport.h"

namespace android {

/** The report of a replay, when it is over. */
class ReplayPage {
public:
    ReplayPage(const SyncTrack& track, const SyncBounds& bounds, const PcmFormat& format,
               const ReplayReport::Figures& figures, const ReplayRecorder& recorder);

    const ReportPage& page() const { return mPage; }

private:
    void addFigures(const PcmFormat& format, const ReplayReport::Figures& figures);
    void addLead(const SyncBounds& bounds);
    void addBesides();
    std::string states() const;

    const SyncTrack& mTrack;
    const ReplayRecorder& mRecorder;
    const TimeAxis mAxis;
    ReportPage mPage;
};

}  // namespace android
