#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tools/course/Moments.h"

namespace android {

/** The time that all strips of a page share, cut into columns of equal width. */
class TimeAxis {
public:
    struct Tick {
        double timeSec;
        std::string label;
        bool isMinor;  // left out where there is little room
    };

    /** From 0 on. */
    TimeAxis(double endSec, int columnCount);

    double endSec() const { return mEndSec; }
    int columnCount() const { return mColumnCount; }
    double columnSec() const { return mEndSec / mColumnCount; }
    /** In columns; times beyond the ends lie on them. */
    double x(double timeSec) const {
        return mColumnCount * std::clamp(timeSec / mEndSec, 0.0, 1.0);
    }
    std::vector<Tick> ticks() const;
    /** What happened in each column of the axis. */
    std::vector<Moments::Column> spread(const Moments& moments) const;

private:
    const double mEndSec;
    const int mColumnCount;
};

}  // namespace android
