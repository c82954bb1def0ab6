#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/chart/Strip.h"

namespace android {

/** What a stream does over time, as a lane of coloured pieces with a key of those that occur. */
class StateStrip {
public:
    enum class State { SILENT, PLAYING, PADDED, PAUSED, LATE, FREE_RUN, FILLING, DROPPING };

    explicit StateStrip(const TimeAxis& axis);

    /** Later pieces lie over earlier ones; one that begins behind the axis is none. */
    void add(State state, double fromSec, double toSec, const std::string& detail = {});
    /** One piece for each column of the axis in which there were any. */
    void add(State state, const Moments& moments,
             const std::function<std::string(const Moments::Column&)>& detail);

    std::string html() const;

private:
    const TimeAxis& mAxis;
    Strip mStrip;
    std::vector<State> mOccurring;
};

}  // namespace android
