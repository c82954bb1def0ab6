#pragma once

#include <string>

#include "tools/chart/Strip.h"
#include "tools/course/HeardLeads.h"
#include "tools/course/SyncTrack.h"

namespace android {

/**
 * The audio lead of a tunnel stream, where the policy sees it and where it is heard: against the
 * policy's thresholds, and against what viewers notice and accept (ITU-R BT.1359).
 */
class LeadStrips {
public:
    LeadStrips(const TimeAxis& axis, const SyncTrack& track, const SyncBounds& bounds,
               const HeardLeads& heard);

    std::string html() const;

private:
    static void drawLeads(const TimeAxis& axis, Strip& strip, const Course& bursts,
                          const Course& leads);
    void drawBounds(const SyncBounds& bounds);
    void drawDetectability();
    void drawCorrections(const SyncTrack& track);
    void drawEvents(const TimeAxis& axis, const SyncTrack& track);

    Strip mParser;
    Strip mOutput;
};

}  // namespace android
