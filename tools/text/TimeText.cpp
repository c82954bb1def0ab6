#include "tools/text/TimeText.h"

#include <cmath>
#include <cstdlib>

#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr double kMaxSec = 1e6;

[[noreturn]] void fail(const std::string& where, const std::string& what) {
    throw ToolError(where + ": " + what, EXIT_USAGE);
}

}  // namespace

int64_t parseSignedTimeNs(const std::string& text, const std::string& where) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const std::string unit = end;
    const bool isTime = unit.empty() || unit == "s" || unit == "ms";
    const double valueSec = unit == "ms" ? value / 1000.0 : value;
    // Not a number fails the comparison.
    if (end == text.c_str() || !isTime || !(std::abs(valueSec) <= kMaxSec)) {
        fail(where, "'" + text + "' is no time; write 2.5, 2.5s or 250ms");
    }
    return std::llround(valueSec * 1e9);
}

int64_t parseTimeNs(const std::string& text, const std::string& where) {
    const int64_t timeNs = parseSignedTimeNs(text, where);
    if (timeNs < 0) {
        fail(where, "'" + text + "' lies before the start");
    }
    return timeNs;
}

double parseNumber(const std::string& text, const std::string& where) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(value)) {
        fail(where, "'" + text + "' is no number");
    }
    return value;
}

TimeSplit splitAtColon(const std::string& text, const std::string& where,
                       const std::string& example) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        fail(where, "'" + text + "' lacks a ':'; write " + example);
    }
    return {.first = text.substr(0, colon), .second = text.substr(colon + 1)};
}

}  // namespace android
