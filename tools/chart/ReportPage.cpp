#include "tools/chart/ReportPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "tools/chart/ReportStyle.h"
#include "tools/text/MarkupText.h"

namespace android {

ReportPage::ReportPage(const TimeAxis& axis, const std::string& title, const std::string& axisTitle)
    : mTitle(markupText(title)) {
    mTimeline = "<div class=\"axis\">";
    for (const TimeAxis::Tick& tick : axis.ticks()) {
        mTimeline += std::string("<span") + (tick.isMinor ? " class=\"minor\"" : "") +
                     " style=\"left:" +
                     fmt::format("{:.2f}", 100 * axis.x(tick.timeSec) / axis.columnCount()) +
                     "%\">" + tick.label + "</span>";
    }
    const bool isLong = axis.ticks()[1].timeSec >= 60;
    mTimeline += "</div><div class=\"timename\">" + markupText(axisTitle) +
                 (isLong ? " (h:min)" : " (s)") + "</div>";
    mBody = "<body data-seconds=\"" + fmt::format("{:.9g}", axis.endSec()) + "\">\n<h1>" + mTitle +
            "</h1>\n";
}

void ReportPage::addTable(const std::string& caption, const std::vector<std::string>& heads,
                          const std::vector<std::vector<std::string>>& rows) {
    // A long one scrolls in its own height, and says so.
    constexpr size_t kMostRowsInSight = 14;
    const bool isTall = rows.size() > kMostRowsInSight;
    mBody += std::string("<section><div class=\"scroll") + (isTall ? " tall" : "") +
             "\" tabindex=\"0\" role=\"region\" aria-label=\"" + markupText(caption) +
             "\"><table><caption>" + markupText(caption) + (isTall ? "; scroll for more" : "") +
             "</caption><thead><tr>";
    // Numbers stand at the right of their column, words at the left.
    std::vector<const char*> styles;
    for (size_t i = 0; i < heads.size(); ++i) {
        const bool isWords = std::any_of(rows.begin(), rows.end(), [i](const auto& row) {
            return !row[i].empty() && isalpha(static_cast<unsigned char>(row[i].front())) != 0;
        });
        styles.push_back(isWords ? " class=\"words\"" : "");
        mBody +=
            std::string("<th scope=\"col\"") + styles[i] + ">" + markupText(heads[i]) + "</th>";
    }
    mBody += "</tr></thead><tbody>\n";
    for (const std::vector<std::string>& row : rows) {
        mBody += "<tr>";
        // Where there is no room for columns, a cell stands behind its head.
        for (size_t i = 0; i < row.size(); ++i) {
            mBody += std::string("<td") + styles[i] + " data-head=\"" + markupText(heads[i]) +
                     "\">" + markupText(row[i]) + "</td>";
        }
        mBody += "</tr>\n";
    }
    mBody += "</tbody></table></div></section>\n";
}

void ReportPage::addFigures(const std::string& heading, const Figures& figures) {
    mBody += "<section><h2>" + markupText(heading) + "</h2><dl>\n";
    for (const auto& [name, value] : figures) {
        mBody += "<div><dt>" + markupText(name) + "</dt><dd>" + markupText(value) + "</dd></div>\n";
    }
    mBody += "</dl></section>\n";
}

void ReportPage::addNotice(const std::string& words) {
    mBody += "<p class=\"notice\">" + markupText(words) + "</p>\n";
}

void ReportPage::addSection(const std::string& heading, const std::string& detail,
                            const std::string& strips) {
    mBody += "<section><h2>" + markupText(heading) + "</h2>\n<p class=\"detail\">" +
             markupText(detail) + "</p>\n" + strips + mTimeline + "</section>\n";
}

std::string ReportPage::html() const {
    return "<!DOCTYPE html>\n<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">\n<head>\n"
           "<meta charset=\"utf-8\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
           "<meta name=\"color-scheme\" content=\"light dark\"/>\n<title>" +
           mTitle + "</title>\n<style>" + kReportStyle + "</style>\n</head>\n" + mBody +
           "<div id=\"now\" aria-hidden=\"true\"></div>\n<script>" + kReportScript +
           "</script>\n</body>\n</html>\n";
}

}  // namespace android
