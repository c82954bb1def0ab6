#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "avsync/AVSyncClock.h"

namespace android {

/** Something that happens to the clock at a time of the replay. */
struct ClockEvent {
    enum class Kind { JUMP, PAUSE, RESUME, DRIFT };

    int64_t timeNs = 0;  // since the first write
    Kind kind = Kind::JUMP;
    int64_t jumpNs = 0;
    double driftPpm = 0;

    /** Reads AT:jump=+400ms, AT:pause, AT:resume or AT:drift=200; throws ToolError (usage). */
    static ClockEvent parse(const std::string& text, const std::string& where);
    /** One event a line, '#' starts a comment line; throws ToolError. */
    static std::vector<ClockEvent> load(const std::string& path);

    /** What happened, such as "jump +400 ms". Without a position a clock can't jump, nor below 0. */
    std::string applyTo(AVSyncClock& clock) const;

private:
    std::string describe() const;
};

}  // namespace android
