#pragma once

#include <string>

#include "tools/audio/PcmFormat.h"
#include "tools/burst/BurstTally.h"
#include "tools/chart/ReportPage.h"
#include "tools/course/StreamFaults.h"
#include "tools/course/SyncTrack.h"
#include "tools/replay/ReplayRecorder.h"
#include "tools/report/ReplayReport.h"
#include "tools/report/RunOrigin.h"

namespace android {

/** The report of a replay, when it is over. */
class ReplayPage {
public:
    /** All of it is to live as long as the page. */
    struct Subject {
        const SyncTrack& track;
        const ReplayRecorder& recorder;
        const BurstTally& tally;
        const StreamFaults& faults;
        const SyncBounds& bounds;
        const PcmFormat& format;
        const ReplayReport::Figures& figures;
        RunOrigin origin;
    };

    explicit ReplayPage(const Subject& subject);

    const ReportPage& page() const { return mPage; }

private:
    void addNotices();
    void addFigures();
    void addHeard();
    void addLead();
    void addStream();
    void addBesides();
    std::string states() const;
    std::string faultMarks() const;

    const Subject mSubject;
    const SyncTrack& mTrack;
    const ReplayRecorder& mRecorder;
    const TimeAxis mAxis;
    ReportPage mPage;
};

}  // namespace android
