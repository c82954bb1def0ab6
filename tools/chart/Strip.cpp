#include "tools/chart/Strip.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <utility>

#include "tools/text/MarkupText.h"

namespace android {

namespace {

constexpr double kHeight = 1000;

std::string titleOf(const std::string& tip) {
    return tip.empty() ? std::string() : "<title>" + markupText(tip) + "</title>";
}

}  // namespace

void Strip::Range::include(double least, double most) {
    low = isEmpty ? least : std::min(low, least);
    high = isEmpty ? most : std::max(high, most);
    isEmpty = false;
}

Strip::Strip(const TimeAxis& axis, Look look) : mAxis(axis), mLook(std::move(look)) {}

Strip::Ranges Strip::rangesOf(const TimeAxis& axis, const Course& course) {
    Ranges ranges(static_cast<size_t>(axis.columnCount()));
    for (const Course::Column& column : course.columns()) {
        const double end = axis.x(column.endSec);
        auto index = static_cast<size_t>(axis.x(column.beginSec));
        do {
            ranges[std::min(index, ranges.size() - 1)].include(column.low, column.high);
        } while (static_cast<double>(++index) < end);
    }
    return ranges;
}

Strip::Ranges Strip::meansOf(const TimeAxis& axis, const Course& course) {
    Ranges means(static_cast<size_t>(axis.columnCount()));
    std::vector<double> sums(means.size());
    std::vector<double> counts(means.size());
    for (const Course::Column& column : course.columns()) {
        const double end = axis.x(column.endSec);
        auto index = static_cast<size_t>(axis.x(column.beginSec));
        do {
            sums[std::min(index, sums.size() - 1)] += column.sum;
            counts[std::min(index, sums.size() - 1)] += static_cast<double>(column.valueCount);
        } while (static_cast<double>(++index) < end);
    }
    for (size_t i = 0; i < means.size(); ++i) {
        if (counts[i] > 0) {
            means[i].include(sums[i] / counts[i], sums[i] / counts[i]);
        }
    }
    return means;
}

double Strip::Scale::share(double value) const {
    // In ms: the leads that are tolerated, and those that viewers notice, are about this large.
    constexpr double kKnee = 100;
    const double held = std::clamp(value, low, high);
    switch (kind) {
        case Kind::LOGARITHMIC:
            return std::log(held / low) / std::log(high / low);
        case Kind::SQUEEZED: {
            const double bottom = std::asinh(low / kKnee);
            return (std::asinh(held / kKnee) - bottom) / (std::asinh(high / kKnee) - bottom);
        }
        case Kind::LINEAR:
            break;
    }
    return (held - low) / (high - low);
}

double Strip::y(double value) const {
    return kHeight * (1 - mLook.scale.share(value));
}

void Strip::band(const char* style, double low, double high) {
    const double top = y(high);
    const double height = y(low) - top;
    if (height <= 0) {
        return;
    }
    add("<rect class=\"{}\" x=\"0\" y=\"{:.0f}\" width=\"{}\" height=\"{:.0f}\"/>", style, top,
        mAxis.columnCount(), height);
}

void Strip::span(const char* style, double fromSec, double toSec, const std::string& tip) {
    const double left = mAxis.x(fromSec);
    add("<rect class=\"{}\" x=\"{:.2f}\" y=\"0\" width=\"{:.2f}\" height=\"{:.0f}\">", style, left,
        std::max(mAxis.x(toSec) - left, 0.5), kHeight);
    mShapes += titleOf(tip) + "</rect>";
}

void Strip::rule(const char* style, double value) {
    add("<path class=\"{}\" d=\"M0 {:.0f}H{}\"/>", style, y(value), mAxis.columnCount());
}

void Strip::bound(double value) {
    if (value > mLook.scale.low && value < mLook.scale.high) {
        rule("bound", value);
    }
}

void Strip::event(double timeSec, const std::string& tip) {
    add("<path class=\"event\" d=\"M{:.2f} 0V{:.0f}\">", mAxis.x(timeSec), kHeight);
    mShapes += titleOf(tip) + "</path>";
}

void Strip::tick(double value, const std::string& label) {
    rule("grid", value);
    mTicks += "<span style=\"top:" + fmt::format("{:.1f}", y(value) / 10) + "%\">" +
              markupText(label) + "</span>";
}

void Strip::ranges(const char* style, const Ranges& ranges) {
    add("<path class=\"{}\" d=\"", style);
    for (size_t begin = 0; begin < ranges.size(); ++begin) {
        if (ranges[begin].isEmpty) {
            continue;
        }
        size_t end = begin;
        add("M{} {:.0f}", begin, y(ranges[begin].high));
        for (; end < ranges.size() && !ranges[end].isEmpty; ++end) {
            add("V{:.0f}h1", y(ranges[end].high));
        }
        for (size_t i = end; i-- > begin;) {
            add("V{:.0f}h-1", y(ranges[i].low));
        }
        mShapes += 'z';
        begin = end;
    }
    mShapes += "\"/>";
}

void Strip::course(const std::string& style, const Course& course) {
    ranges(("faint " + style).c_str(), rangesOf(mAxis, course));
    ranges(style.c_str(), meansOf(mAxis, course));
}

void Strip::reading(const std::string& name, const std::string& unit, int decimals,
                    const Ranges& ranges) {
    std::string lows;
    std::string highs;
    for (const Range& range : ranges) {
        if (!range.isEmpty) {
            const std::string low = fmt::format("{:.{}f}", range.low, decimals);
            const std::string high = fmt::format("{:.{}f}", range.high, decimals);
            lows += low;
            // Most ranges are one value.
            highs += low == high ? "" : high;
        }
        lows += ',';
        highs += ',';
    }
    mReadings += "<span class=\"reading\" hidden=\"\" data-name=\"" + markupText(name) +
                 "\" data-unit=\"" + markupText(unit) + "\" data-low=\"" + lows +
                 "\" data-high=\"" + highs + "\"></span>";
}

void Strip::line(const char* style, const std::vector<Point>& points, const std::string& tip) {
    add("<path class=\"{}\" d=\"", style);
    char command = 'M';
    for (const Point& point : points) {
        add("{}{:.2f} {:.1f}", command, mAxis.x(point.timeSec), y(point.value));
        command = 'L';
    }
    mShapes += "\">" + titleOf(tip) + "</path>";
}

void Strip::mark(const char* style, const Point& at, const std::string& tip) {
    const std::string words = markupText(tip);
    mMarks += fmt::format(
        "<i class=\"mark {}\" style=\"left:{:.2f}%;top:{:.1f}%\" title=\"{}\"></i>", style,
        100 * mAxis.x(at.timeSec) / mAxis.columnCount(), y(at.value) / 10, words);
}

std::string Strip::when(const Moments::Column& column) {
    return column.count == 1 ? fmt::format(" at {:.3f} s", column.firstSec)
                             : fmt::format(", {:.3f} to {:.3f} s", column.firstSec, column.lastSec);
}

void Strip::marks(const char* style, const Moments& moments,
                  const std::function<Note(const Moments::Column&)>& note) {
    for (const Moments::Column& column : mAxis.spread(moments)) {
        if (column.count > 0) {
            const Note words = note(column);
            mark(style, {.timeSec = column.firstSec, .value = words.value}, words.tip);
        }
    }
}

std::string Strip::html() const {
    std::string grid;
    for (const TimeAxis::Tick& tick : mAxis.ticks()) {
        grid += fmt::format("M{:.2f} 0v1000", mAxis.x(tick.timeSec));
    }
    const std::string title = markupText(mLook.title);
    return fmt::format(
        "<figure data-kind=\"{}\"><figcaption>{}</figcaption><div class=\"plot\" "
        "style=\"height:{}px\"><div class=\"ticks\">{}</div><svg viewBox=\"0 0 {} 1000\" "
        "preserveAspectRatio=\"none\" role=\"img\" aria-label=\"{}\"><path class=\"grid\" "
        "d=\"{}\"/>{}</svg><div class=\"over\">{}</div>{}</div></figure>\n",
        mLook.kind, title, mLook.heightPx, mTicks, mAxis.columnCount(), title, grid, mShapes,
        mMarks, mReadings);
}

}  // namespace android
