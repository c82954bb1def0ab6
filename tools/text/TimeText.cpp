#include "tools/text/TimeText.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <vector>

#include "tools/process/ToolError.h"
#include "tools/text/Quantity.h"

namespace android {

namespace {

constexpr double kMaxSec = 1e6;

[[noreturn]] void fail(const std::string& where, const std::string& what) {
    throw ToolError(where + ": " + what, EXIT_USAGE);
}

/** The whole minutes or hours in front of a ':', or minutes and seconds behind one: two digits. */
bool isCount(const std::string& digits, bool isBehind) {
    return !digits.empty() &&
           (isBehind ? digits.size() == 2 && digits[0] < '6' : digits.size() < 7) &&
           digits.find_first_not_of("0123456789") == std::string::npos;
}

/** 1:30, 1:30.25, 1:02:03; negative: it is none of these. */
double clockTimeSec(const std::string& text) {
    const size_t last = text.rfind(':');
    const size_t first = text.find(':');
    const std::string seconds = text.substr(last + 1);
    const size_t point = std::min(seconds.find('.'), seconds.size());
    const std::string fraction = seconds.substr(std::min(point + 1, seconds.size()));
    std::string minutes = text.substr(0, last);
    std::string hours = "0";
    if (first != last) {
        hours = text.substr(0, first);
        minutes = text.substr(first + 1, last - first - 1);
    }
    if (!isCount(hours, false) || !isCount(minutes, first != last) ||
        !isCount(seconds.substr(0, point), true) ||
        fraction.find_first_not_of("0123456789") != std::string::npos) {
        return -1.0;
    }
    return std::stod(hours) * 3600 + std::stod(minutes) * 60 + std::stod(seconds);
}

TimeSplit splitAt(const std::string& text, size_t colon) {
    return {.first = text.substr(0, colon), .second = text.substr(colon + 1)};
}

}  // namespace

int64_t parseSignedTimeNs(const std::string& text, const std::string& where) {
    if (text.find(':') != std::string::npos) {
        const bool isSigned = text[0] == '-' || text[0] == '+';
        const double timeSec = clockTimeSec(text.substr(isSigned ? 1 : 0));
        if (timeSec < 0.0 || timeSec > kMaxSec) {
            fail(where, "'" + text + "' is not a time; write 1:30, 1:02:03.5, 2.5s or 250ms");
        }
        return std::llround((text[0] == '-' ? -timeSec : timeSec) * 1e9);
    }
    const auto [value, unit] = quantityOf(text);
    const bool isTime = unit.empty() || unit == "s" || unit == "ms";
    const double valueSec = unit == "ms" ? value / 1000.0 : value;
    // Not a number fails the comparison.
    if (!isTime || !(std::abs(valueSec) <= kMaxSec)) {
        fail(where, "'" + text + "' is not a time; write 2.5, 2.5s, 250ms or 1:30");
    }
    return std::llround(valueSec * 1e9);
}

int64_t parseTimeNs(const std::string& text, const std::string& where) {
    const int64_t timeNs = parseSignedTimeNs(text, where);
    if (timeNs < 0) {
        fail(where, "'" + text + "' is before the start");
    }
    return timeNs;
}

double parseNumber(const std::string& text, const std::string& where) {
    const auto [value, unit] = quantityOf(text);
    if (std::isnan(value) || !unit.empty()) {
        fail(where, "'" + text + "' is not a number");
    }
    return value;
}

TimeSplit splitAtColon(const std::string& text, const std::string& where,
                       const std::string& example) {
    std::vector<size_t> colons;
    for (size_t at = text.find(':'); at != std::string::npos; at = text.find(':', at + 1)) {
        colons.push_back(at);
        if (at + 1 < text.size() && std::isalpha(static_cast<unsigned char>(text[at + 1])) != 0) {
            return splitAt(text, at);
        }
    }
    if (colons.empty()) {
        fail(where, "'" + text + "' lacks a ':'; write " + example);
    }
    return splitAt(text, colons.size() == 2 ? colons[1] : colons[colons.size() / 2]);
}

}  // namespace android
