#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/chart/TimeAxis.h"

namespace android {

/** A page that needs nothing else: headings, figures, strips over one time. */
class ReportPage {
public:
    ReportPage(const TimeAxis& axis, const std::string& title, const std::string& axisTitle);

    /** What they are, and their values. Texts of the page are escaped here, in all of it. */
    using Figures = std::vector<std::pair<std::string, std::string>>;
    void addFigures(const std::string& heading, const Figures& figures);
    void addTable(const std::string& caption, const std::vector<std::string>& heads,
                  const std::vector<std::vector<std::string>>& rows);
    /** A warning to whoever reads the page. */
    void addNotice(const std::string& words);
    /** Strips below a heading, with the time below them. */
    void addSection(const std::string& heading, const std::string& detail,
                    const std::string& strips);

    std::string html() const;

private:
    const std::string mTitle;
    std::string mTimeline;
    std::string mBody;
};

}  // namespace android
