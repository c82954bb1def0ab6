#pragma once

#include <fmt/format.h>

#include <iterator>
#include <string>
#include <utility>

#include "tools/chart/ChartFrame.h"
#include "tools/course/SyncTrack.h"

namespace android {

/** Draws the audio lead and the decisions of a replay over time, as SVG that needs nothing else. */
class LeadChart {
public:
    LeadChart(const SyncTrack& track, const SyncBounds& bounds, const std::string& title);

    /** The whole picture. */
    const std::string& svg() const { return mSvg; }
    /** Throws ToolError when the file can't be written. */
    void write(const std::string& path) const;

private:
    void chooseFrame();
    void drawBands();
    void drawBand(const char* style, double lowMs, double highMs, const char* label);
    void drawAxes();
    void drawFreeRuns();
    void drawEvents();
    void drawLead();
    void drawCorrections();
    void drawReturns();
    void drawLegend();
    void text(double x, double y, const char* style, const std::string& words);
    void shape(SyncDecision::Kind kind, double x, double y, const std::string& tip);
    template <typename... Args>
    void add(fmt::format_string<Args...> format, Args&&... arguments) {
        fmt::format_to(std::back_inserter(mSvg), format, std::forward<Args>(arguments)...);
    }

    const SyncTrack& mTrack;
    const SyncBounds mBounds;
    ChartFrame mFrame;
    std::string mSvg;
};

}  // namespace android
