#include "tools/replay/ClockEvent.h"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/process/ToolError.h"
#include "tools/text/TimeText.h"

namespace android {

namespace {

constexpr double kMaxDriftPpm = 1e6;

}  // namespace

ClockEvent ClockEvent::parse(const std::string& text, const std::string& where) {
    const TimeSplit split = splitAtColon(text, where, "5s:jump=+400ms");
    ClockEvent event;
    event.timeNs = parseTimeNs(split.first, where);
    const size_t equals = split.second.find('=');
    const std::string verb = split.second.substr(0, equals);
    const bool hasValue = equals != std::string::npos;
    const std::string value = hasValue ? split.second.substr(equals + 1) : std::string();
    if (verb == "jump" && hasValue) {
        event.kind = Kind::JUMP;
        event.jumpNs = parseSignedTimeNs(value, where);
    } else if (verb == "drift" && hasValue) {
        event.kind = Kind::DRIFT;
        event.driftPpm = parseNumber(value, where);
        if (std::abs(event.driftPpm) > kMaxDriftPpm) {
            throw ToolError(where + ": a drift of " + value + " ppm is beyond 1000000", EXIT_USAGE);
        }
    } else if (verb == "pause" && !hasValue) {
        event.kind = Kind::PAUSE;
    } else if (verb == "resume" && !hasValue) {
        event.kind = Kind::RESUME;
    } else {
        throw ToolError(where + ": '" + split.second +
                            "' is not an event; known are jump=TIME, drift=PPM, pause and resume",
                        EXIT_USAGE);
    }
    return event;
}

std::vector<ClockEvent> ClockEvent::load(const std::string& path) {
    std::ifstream file(path);
    std::error_code error;
    if (!file || std::filesystem::is_directory(path, error)) {
        throw ToolError(path + ": can't be read: " + strerror(error ? EISDIR : errno) +
                        "; check --script");
    }
    std::vector<ClockEvent> events;
    std::string line;
    for (int lineNumber = 1; std::getline(file, line); ++lineNumber) {
        line.erase(0, line.find_first_not_of(" \t\r"));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (!line.empty() && line[0] != '#') {
            events.push_back(parse(line, fmt::format("{}, line {}", path, lineNumber)));
        }
    }
    return events;
}

std::string ClockEvent::applyTo(AVSyncClock& clock) const {
    std::string limit;
    switch (kind) {
        case Kind::JUMP: {
            const uint64_t positionNs = clock.positionNs();
            const bool isBelow =
                jumpNs < 0 && positionNs < uint64_t{0} - static_cast<uint64_t>(jumpNs);
            limit = positionNs == 0 ? " (no position yet)" : isBelow ? " (held at 0)" : "";
            clock.jumpNs(jumpNs);
            break;
        }
        case Kind::PAUSE:
            clock.pause();
            break;
        case Kind::RESUME:
            clock.resume();
            break;
        case Kind::DRIFT:
            clock.setDriftPpm(driftPpm);
            break;
    }
    return describe() + limit;
}

std::string ClockEvent::describe() const {
    switch (kind) {
        case Kind::JUMP:
            return fmt::format("jump {:+.15g} ms", static_cast<double>(jumpNs) / 1e6);
        case Kind::PAUSE:
            return "pause";
        case Kind::RESUME:
            return "resume";
        case Kind::DRIFT:
            return fmt::format("drift {:+.15g} ppm", driftPpm);
    }
    return {};
}

}  // namespace android
