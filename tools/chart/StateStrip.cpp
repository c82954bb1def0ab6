#include "tools/chart/StateStrip.h"

#include <fmt/format.h>

#include <algorithm>

namespace android {

namespace {

struct Naming {
    const char* style;
    const char* words;
};

Naming namingOf(StateStrip::State state) {
    switch (state) {
        case StateStrip::State::SILENT:
            return {"silent", "silence in front"};
        case StateStrip::State::PLAYING:
            return {"playing", "playing"};
        case StateStrip::State::PADDED:
            return {"padded", "ended, padded with silence"};
        case StateStrip::State::PAUSED:
            return {"paused", "paused"};
        case StateStrip::State::LATE:
            return {"late", "late: the mix waited for it"};
        case StateStrip::State::FREE_RUN:
            return {"freerun", "free run"};
        case StateStrip::State::FILLING:
            return {"filling", "silence inserted"};
        case StateStrip::State::DROPPING:
            return {"dropping", "audio dropped"};
    }
    return {"", ""};
}

}  // namespace

StateStrip::StateStrip(const TimeAxis& axis)
    : mAxis(axis),
      mStrip(axis, {.kind = "states",
                    .title = "State of the stream",
                    .heightPx = 18,
                    .scale = {.low = 0.0, .high = 1.0}}) {}

void StateStrip::add(State state, double fromSec, double toSec, const std::string& detail) {
    if (toSec <= fromSec || toSec <= 0.0 || fromSec >= mAxis.endSec()) {
        return;
    }
    const Naming naming = namingOf(state);
    if (std::find(mOccurring.begin(), mOccurring.end(), state) == mOccurring.end()) {
        mOccurring.push_back(state);
    }
    // A span of one column, the least that can be seen, is told as a moment.
    const bool isMoment = toSec - fromSec <= mAxis.columnSec() * 1.001;
    const std::string when = isMoment ? fmt::format(" at {:.3f} s", fromSec)
                                      : fmt::format(", {:.3f} to {:.3f} s", std::max(fromSec, 0.0),
                                                    std::min(toSec, mAxis.endSec()));
    mStrip.span(naming.style, fromSec, toSec, naming.words + when + detail);
}

void StateStrip::add(State state, const Moments& moments,
                     const std::function<std::string(const Moments::Column&)>& detail) {
    for (const Moments::Column& column : mAxis.spread(moments)) {
        if (column.count > 0) {
            const std::string times =
                column.count > 1 ? fmt::format(", {} times", column.count) : "";
            add(state, column.firstSec, column.firstSec + mAxis.columnSec(),
                times + detail(column));
        }
    }
}

std::string StateStrip::html() const {
    std::string key = "<p class=\"key\">";
    for (const State state : mOccurring) {
        const Naming naming = namingOf(state);
        key += std::string("<span><i class=\"swatch ") + naming.style + "\"></i>" + naming.words +
               "</span> ";
    }
    return mStrip.html() + key + "</p>\n";
}

}  // namespace android
