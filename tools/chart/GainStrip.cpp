#include "tools/chart/GainStrip.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace android {

namespace {

using Step = InputTrack::GainStep;

/** Each ramp as far as it gets: the next step starts at the gain that the last one reached. */
std::vector<Strip::Point> walk(const std::vector<Step>& steps, float Step::*gain, double rampSec,
                               double endSec) {
    // A stream begins at full gain.
    std::vector<Strip::Point> points = {
        {.timeSec = -std::numeric_limits<double>::max(), .value = 1.0}};
    double now = 1.0;
    for (size_t i = 0; i < steps.size(); ++i) {
        const double beginSec = steps[i].timeSec;
        const double untilSec = i + 1 < steps.size() ? steps[i + 1].timeSec : endSec;
        const double target = steps[i].*gain;
        points.push_back({.timeSec = beginSec, .value = now});
        const double share = rampSec > 0.0 ? std::min((untilSec - beginSec) / rampSec, 1.0) : 1.0;
        now += (target - now) * std::max(share, 0.0);
        points.push_back({.timeSec = beginSec + rampSec * std::max(share, 0.0), .value = now});
    }
    points.push_back({.timeSec = endSec, .value = now});
    // Of the points before the left edge, only the last one is kept; it is drawn on the edge.
    const auto first = std::find_if(points.begin(), points.end(),
                                    [](const Strip::Point& point) { return point.timeSec >= 0.0; });
    if (first != points.begin()) {
        points.erase(points.begin(), first - 1);
    }
    return points;
}

}  // namespace

GainStrip::GainStrip(const TimeAxis& axis, const std::vector<Step>& steps, double rampSec)
    : mAxis(axis),
      mRampSec(rampSec),
      mStrip(axis, {.kind = "gains",
                    .title = "Gain (linear): dashed what was set, solid the walk to it, " +
                             fmt::format("{:.0f} ms", rampSec * 1000),
                    .heightPx = 64,
                    .scale = {.low = -0.05, .high = 1.05}}),
      mIsBalanced(std::all_of(steps.begin(), steps.end(),
                              [](const Step& step) { return step.left == step.right; })) {
    mStrip.tick(1.0, "1");
    mStrip.tick(0.5, "0.5");
    mStrip.tick(0.0, "0");
    drawChannel("left", steps, &Step::left, mIsBalanced ? "gain" : "left gain");
    if (!mIsBalanced) {
        drawChannel("right", steps, &Step::right, "right gain");
    }
    markSteps(steps);
}

/** One mark for each column of the axis that has steps; it shows the last of them. */
void GainStrip::markSteps(const std::vector<Step>& steps) {
    const auto columnOf = [this](const Step& step) {
        return static_cast<int>(mAxis.x(step.timeSec));
    };
    // The first step is the gain that the stream begins with.
    for (size_t begin = 1, end = 1; begin < steps.size(); begin = end) {
        while (end < steps.size() && columnOf(steps[end]) == columnOf(steps[begin])) {
            ++end;
        }
        const Step& step = steps[end - 1];
        if (step.timeSec < 0.0) {
            continue;
        }
        std::string tip =
            end - begin == 1 ? "gain set" : fmt::format("{} gains set, the last", end - begin);
        tip += fmt::format(" at {:.3f} s to {:.3g}", step.timeSec, step.left);
        if (!mIsBalanced) {
            tip += fmt::format(" left, {:.3g} right", step.right);
        }
        mStrip.mark("set", {.timeSec = step.timeSec, .value = step.left}, tip);
    }
}

void GainStrip::drawChannel(const char* style, const std::vector<Step>& steps, float Step::*gain,
                            const char* name) {
    std::vector<Strip::Point> targets;
    for (size_t i = 0; i < steps.size(); ++i) {
        const double untilSec = i + 1 < steps.size() ? steps[i + 1].timeSec : mAxis.endSec();
        if (untilSec >= 0.0) {
            targets.push_back({.timeSec = steps[i].timeSec, .value = steps[i].*gain});
            targets.push_back({.timeSec = untilSec, .value = steps[i].*gain});
        }
    }
    mStrip.line((std::string("target ") + style).c_str(), targets, std::string(name) + " set");
    mStrip.line((std::string("walk ") + style).c_str(), walk(steps, gain, mRampSec, mAxis.endSec()),
                name);
}

std::string GainStrip::html() const {
    return mStrip.html() + (mIsBalanced
                                ? ""
                                : "<p class=\"key\"><span><i class=\"swatch left\"></i>left</span> "
                                  "<span><i class=\"swatch right\"></i>right</span></p>\n");
}

}  // namespace android
