#include "tools/audio/InputSpec.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "tools/process/ToolError.h"

namespace android {

namespace {

/** The number that starts `text`; what follows it is left in `unit`. NaN when there is none. */
double numberOf(const std::string& text, std::string& unit) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    unit = end;
    unit.erase(0, unit.find_first_not_of(' '));
    return end == text.c_str() || !std::isfinite(value) ? std::nan("") : value;
}

double parseGain(const std::string& text, const std::string& where) {
    std::string unit;
    const double value = numberOf(text, unit);
    const bool isDecibel = unit == "dB" || unit == "db";
    const double gain = isDecibel ? std::pow(10.0, value / 20.0) : value;
    if (std::isnan(value) || !(unit.empty() || isDecibel)) {
        throw ToolError(where + ": '" + text + "' is no gain; write 0.5 or -6dB", EXIT_USAGE);
    }
    if (gain < 0.0 || gain > 1.0) {
        throw ToolError(where + ": a gain of " + text + " is outside 0 to 1; write 0.5 or -6dB",
                        EXIT_USAGE);
    }
    return gain;
}

double parseTimeSec(const std::string& text, const std::string& where) {
    std::string unit;
    const double value = numberOf(text, unit);
    const double timeSec = unit == "ms" ? value / 1000.0 : value;
    const bool isTime = unit.empty() || unit == "s" || unit == "ms";
    if (std::isnan(value) || !isTime || timeSec < 0.0 || timeSec > 1e6) {
        throw ToolError(where + ": '" + text + "' is no time; write 2.5, 2.5s or 250ms",
                        EXIT_USAGE);
    }
    return timeSec;
}

uint32_t parseCount(const std::string& text, const std::string& where, uint32_t min, uint32_t max) {
    std::string unit;
    const double count = numberOf(text, unit);
    if (!unit.empty() || !(count >= min && count <= max) || count != std::floor(count)) {
        throw ToolError(where + ": '" + text + "' is no whole number from " + std::to_string(min) +
                            " to " + std::to_string(max),
                        EXIT_USAGE);
    }
    return static_cast<uint32_t>(count);
}

GainChange parseGainChange(const std::string& text, const std::string& where) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw ToolError(where + ": '" + text + "' lacks a gain; write 4s:0.2", EXIT_USAGE);
    }
    return {.timeSec = parseTimeSec(text.substr(0, colon), where),
            .gain = static_cast<float>(parseGain(text.substr(colon + 1), where))};
}

/** Whether the setting was one that says what a pipe's bytes are. */
bool applyPipeSetting(InputSpec& spec, const std::string& key, const std::string& value) {
    const std::string where = spec.path + ": " + key;
    if (key != "rate" && key != "channels" && key != "format") {
        return false;
    }
    if (!spec.isPipe()) {
        throw ToolError(where + ": is for '-' alone; a file says itself what it holds", EXIT_USAGE);
    }
    if (key == "rate") {
        spec.pipeFormat.rateHz = parseCount(value, where, 4000, 768000);
    } else if (key == "channels") {
        spec.pipeFormat.channelCount = parseCount(value, where, 1, 32);
    } else if (value == "s16" || value == "s32") {
        spec.pipeFormat.bits = value == "s16" ? 16 : 32;
    } else {
        throw ToolError(where + ": '" + value + "' is no format; write s16 or s32", EXIT_USAGE);
    }
    return true;
}

void applySetting(InputSpec& spec, const std::string& setting) {
    const size_t equals = std::min(setting.find('='), setting.size());
    const std::string key = setting.substr(0, equals);
    const std::string value = setting.substr(std::min(equals + 1, setting.size()));
    const std::string where = spec.path + ": " + key;
    std::string unit;
    if (key == "gain") {
        spec.gain = static_cast<float>(parseGain(value, where));
    } else if (key == "balance") {
        spec.balance = static_cast<float>(numberOf(value, unit));
        if (!unit.empty() || !(std::abs(spec.balance) <= 1.0f)) {
            throw ToolError(where + ": '" + value + "' is no balance from -1 (left) to 1 (right)",
                            EXIT_USAGE);
        }
    } else if (key == "start") {
        spec.startSec = parseTimeSec(value, where);
    } else if (key == "length") {
        spec.lengthSec = parseTimeSec(value, where);
        if (spec.lengthSec == 0.0) {
            throw ToolError(where + ": leaves nothing to play; leave the input out", EXIT_USAGE);
        }
    } else if (key == "loop") {
        spec.loopCount = parseCount(value, where, 1, 1000000);
    } else if (key == "volume") {
        spec.gainChanges.push_back(parseGainChange(value, where));
    } else if (!applyPipeSetting(spec, key, value)) {
        throw ToolError(spec.path + ": unknown setting '" + key +
                            "'; known are gain, balance, start, length, loop and volume" +
                            (spec.isPipe() ? ", and rate, channels and format" : ""),
                        EXIT_USAGE);
    }
}

}  // namespace

InputSpec InputSpec::parse(const std::string& text) {
    InputSpec spec;
    spec.path = text;
    std::error_code error;
    const size_t at = text.rfind('@');
    if (at == std::string::npos || std::filesystem::exists(text, error)) {
        return spec;
    }
    spec.path = text.substr(0, at);
    size_t begin = at + 1;
    while (begin <= text.size()) {
        const size_t end = std::min(text.find(',', begin), text.size());
        applySetting(spec, text.substr(begin, end - begin));
        begin = end + 1;
    }
    std::stable_sort(spec.gainChanges.begin(), spec.gainChanges.end(),
                     [](const auto& a, const auto& b) { return a.timeSec < b.timeSec; });
    return spec;
}

float InputSpec::gainAt(double timeSec) const {
    float now = gain;
    for (const GainChange& change : gainChanges) {
        now = change.timeSec <= timeSec ? change.gain : now;
    }
    return now;
}

}  // namespace android
