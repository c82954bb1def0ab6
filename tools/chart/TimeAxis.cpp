#include "tools/chart/TimeAxis.h"

#include <fmt/format.h>

#include <cmath>

namespace android {

namespace {

constexpr double kMostTicks = 12;

// Steps that people count time in.
constexpr double kSteps[] = {0.01, 0.02, 0.05,  0.1,   0.2,   0.5,   1,     2,    5,
                             10,   20,   30,    60,    120,   300,   600,   1200, 1800,
                             3600, 7200, 10800, 21600, 43200, 86400, 172800};

std::string labelOf(double timeSec, double stepSec) {
    if (stepSec < 60) {
        return fmt::format("{:.6g}", timeSec);
    }
    const long minutes = std::lround(timeSec / 60);
    return fmt::format("{}:{:02}", minutes / 60, minutes % 60);
}

}  // namespace

TimeAxis::TimeAxis(double endSec, int columnCount)
    : mEndSec(std::max(endSec, 0.02)), mColumnCount(columnCount) {}

std::vector<Moments::Column> TimeAxis::spread(const Moments& moments) const {
    std::vector<Moments::Column> spread(static_cast<size_t>(mColumnCount));
    for (const Moments::Column& column : moments.columns()) {
        spread[std::min(static_cast<size_t>(x(column.firstSec)), spread.size() - 1)].merge(column);
    }
    return spread;
}

std::vector<TimeAxis::Tick> TimeAxis::ticks() const {
    double stepSec = kSteps[0];
    for (const double candidate : kSteps) {
        stepSec = candidate;
        if (mEndSec / candidate <= kMostTicks) {
            break;
        }
    }
    // Beyond the longest step, days of it.
    stepSec *=
        std::max(1.0, static_cast<double>(static_cast<long>(mEndSec / stepSec / kMostTicks)));
    std::vector<Tick> ticks;
    for (int i = 0; i * stepSec <= mEndSec * (1 + 1e-9); ++i) {
        ticks.push_back({.timeSec = i * stepSec,
                         .label = labelOf(i * stepSec, stepSec),
                         .isMinor = i % 3 != 0});
    }
    return ticks;
}

}  // namespace android
