#include "tools/chart/ReportPage.h"

#include "tools/chart/ReportStyle.h"
#include "tools/text/MarkupText.h"

namespace android {

ReportPage::ReportPage(const TimeAxis& axis, const std::string& title, const std::string& axisTitle)
    : mTitle(markupText(title)) {
    mTimeline = "<div class=\"axis\">";
    for (const TimeAxis::Tick& tick : axis.ticks()) {
        mTimeline += std::string("<span") + (tick.isMinor ? " class=\"minor\"" : "") +
                     " style=\"left:" +
                     markupNumber("%.2f", 100 * axis.x(tick.timeSec) / axis.columnCount()) +
                     "%\">" + tick.label + "</span>";
    }
    const bool isLong = axis.ticks()[1].timeSec >= 60;
    mTimeline += "</div><div class=\"timename\">" + markupText(axisTitle) +
                 (isLong ? " (h:min)" : " (s)") + "</div>";
    mBody = "<body data-seconds=\"" + markupNumber("%.9g", axis.endSec()) + "\">\n<h1>" + mTitle +
            "</h1>\n";
}

void ReportPage::addTable(const std::string& caption, const std::vector<std::string>& heads,
                          const std::vector<std::vector<std::string>>& rows) {
    mBody += "<section><div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"" +
             markupText(caption) + "\"><table><caption>" + markupText(caption) +
             "</caption><thead><tr>";
    for (const std::string& head : heads) {
        mBody += "<th scope=\"col\">" + markupText(head) + "</th>";
    }
    mBody += "</tr></thead><tbody>\n";
    for (const std::vector<std::string>& row : rows) {
        mBody += "<tr>";
        for (const std::string& cell : row) {
            mBody += "<td>" + markupText(cell) + "</td>";
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
