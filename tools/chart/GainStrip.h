#pragma once

#include <vector>

#include "tools/chart/Strip.h"
#include "tools/course/InputTrack.h"

namespace android {

/** The gains that an input was given, and how the library walks from one to the next. */
class GainStrip {
public:
    /** `rampSec` is the length of the stream's buffer: a walk takes as long, in a straight line. */
    GainStrip(const TimeAxis& axis, const std::vector<InputTrack::GainStep>& steps, double rampSec);

    std::string html() const;

private:
    void markSteps(const std::vector<InputTrack::GainStep>& steps);
    void drawChannel(const char* style, const std::vector<InputTrack::GainStep>& steps,
                     float InputTrack::GainStep::*gain, const char* name);

    const TimeAxis& mAxis;
    const double mRampSec;
    Strip mStrip;
    bool mIsBalanced;
};

}  // namespace android
