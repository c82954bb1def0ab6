#include "tools/audio/InputSpec.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

#include "tools/audio/StreamConfig.h"
#include "tools/process/ToolError.h"
#include "tools/text/GainText.h"
#include "tools/text/Quantity.h"
#include "tools/text/TimeText.h"

namespace android {

namespace {

double parseTimeSec(const std::string& text, const std::string& where) {
    return static_cast<double>(parseTimeNs(text, where)) / 1e9;
}

uint32_t parseCount(const std::string& text, const std::string& where, uint32_t min, uint32_t max) {
    const auto [count, unit] = quantityOf(text);
    if (!unit.empty() || !(count >= min && count <= max) || count != std::floor(count)) {
        throw ToolError(
            fmt::format("{}: '{}' is not a whole number from {} to {}", where, text, min, max),
            EXIT_USAGE);
    }
    return static_cast<uint32_t>(count);
}

GainChange parseGainChange(const std::string& text, const std::string& where) {
    const size_t colon = text.rfind(':');  // the time may have some
    if (colon == std::string::npos) {
        throw ToolError(where + ": '" + text + "' lacks a gain; write 4s:0.2", EXIT_USAGE);
    }
    return {.timeSec = parseTimeSec(text.substr(0, colon), where),
            .gain = static_cast<float>(parseGain(text.substr(colon + 1), where))};
}

PipeFormat::Sample parseSample(const std::string& text, const std::string& where) {
    using Sample = PipeFormat::Sample;
    constexpr std::pair<const char*, Sample> kNames[] = {
        {"s16", Sample::S16}, {"s24", Sample::S24}, {"s32", Sample::S32}, {"f32", Sample::F32}};
    for (const auto& [name, sample] : kNames) {
        if (text == name) {
            return sample;
        }
    }
    throw ToolError(where + ": '" + text + "' is not a format; write s16, s24, s32 or f32",
                    EXIT_USAGE);
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
        spec.pipeFormat.rateHz = parseCount(value, where, kMinRateHz, kMaxRateHz);
    } else if (key == "channels") {
        spec.pipeFormat.channelCount = parseCount(value, where, 1, 32);
    } else {
        spec.pipeFormat.sample = parseSample(value, where);
    }
    spec.hasPipeFormat = true;
    return true;
}

void applySetting(InputSpec& spec, const std::string& setting) {
    const size_t equals = std::min(setting.find('='), setting.size());
    const std::string key = setting.substr(0, equals);
    const std::string value = setting.substr(std::min(equals + 1, setting.size()));
    const std::string where = spec.path + ": " + key;
    if (key == "gain") {
        spec.gain = static_cast<float>(parseGain(value, where));
    } else if (key == "balance") {
        const Quantity balance = quantityOf(value);
        spec.balance = static_cast<float>(balance.value);
        if (!balance.unit.empty() || !(std::abs(spec.balance) <= 1.0f)) {
            throw ToolError(
                where + ": '" + value + "' is not a balance from -1 (left) to 1 (right)",
                EXIT_USAGE);
        }
    } else if (key == "start") {
        spec.startSec = parseTimeSec(value, where);
    } else if (key == "from") {
        spec.fromSec = parseTimeSec(value, where);
    } else if (key == "downmix") {
        if (value != "itu" && value != "off") {
            throw ToolError(where + ": '" + value + "' is not a downmix; write itu or off",
                            EXIT_USAGE);
        }
        spec.isDownmixed = value == "itu";
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
                            "'; known are gain, balance, start, from, length, loop, volume and "
                            "downmix" +
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
    spec.splitGains();
    return spec;
}

void InputSpec::splitGains() {
    for (const GainChange& change : gainChanges) {
        boost = std::max(boost, change.gain);
    }
    boost = std::max(boost, gain);
    gain /= boost;
    for (GainChange& change : gainChanges) {
        change.gain /= boost;
    }
}

float InputSpec::gainAt(double timeSec) const {
    float now = gain;
    for (const GainChange& change : gainChanges) {
        now = change.timeSec <= timeSec ? change.gain : now;
    }
    return now;
}

}  // namespace android
