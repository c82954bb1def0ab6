#pragma once

#include <fmt/format.h>

#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tools/chart/TimeAxis.h"
#include "tools/course/Course.h"

namespace android {

/**
 * One plot over the page's time. The picture is stretched to the page's width; scale and notes are
 * text of the page, which keeps its size.
 * Threads: one.
 */
class Strip {
public:
    struct Scale {
        enum class Kind {
            LINEAR,
            LOGARITHMIC,
            SQUEEZED,  // linear around 0, logarithmic far from it
        };

        double low;
        double high;
        Kind kind = Kind::LINEAR;

        /** 0 at the low end, 1 at the high one. */
        double share(double value) const;
    };

    struct Look {
        const char* kind;   // what stands in the strip, for those who look for one
        std::string title;  // with the unit
        int heightPx;
        Scale scale;
    };

    /** A value's range in a column of the axis. */
    struct Range {
        double low = 0.0;
        double high = 0.0;
        bool isEmpty = true;

        void include(double least, double most);
    };
    using Ranges = std::vector<Range>;

    Strip(const TimeAxis& axis, Look look);

    /** What belongs to each column of the axis. */
    static Ranges rangesOf(const TimeAxis& axis, const Course& course);
    /** The means of what belongs to each. */
    static Ranges meansOf(const TimeAxis& axis, const Course& course);

    /** Behind everything that comes later. */
    void band(const char* style, double low, double high);
    /** From one time to another, as high as the strip. */
    void span(const char* style, double fromSec, double toSec, const std::string& tip);
    void rule(const char* style, double value);
    /** A rule that is left out where the value lies beyond the scale. */
    void bound(double value);
    /** Across the strip, from top to bottom. */
    void event(double timeSec, const std::string& tip);
    /** Beside the strip. */
    void tick(double value, const std::string& label);
    void ranges(const char* style, const Ranges& ranges);
    /** The range of a course, faint, and its mean. */
    void course(const std::string& style, const Course& course);
    /** What stands under the pointer in each column, with its unit. */
    void reading(const std::string& name, const std::string& unit, int decimals,
                 const Ranges& ranges);
    struct Point {
        double timeSec;
        double value;
    };
    void line(const char* style, const std::vector<Point>& points, const std::string& tip = {});
    /** A small shape of its own size: one of the page's `mark` styles. */
    void mark(const char* style, const Point& at, const std::string& tip);
    /** Where a mark stands, and what it says. */
    struct Note {
        double value;
        std::string tip;
    };
    /** Such as " at 3.000 s", or ", 3.000 to 3.020 s". */
    static std::string when(const Moments::Column& column);
    /** One mark for each column of the axis in which something happened. */
    void marks(const char* style, const Moments& moments,
               const std::function<Note(const Moments::Column&)>& note);

    /** The figure with its title, without the axis. */
    std::string html() const;

private:
    /** In thousandths of the strip's height from the top. */
    double y(double value) const;
    template <typename... Args>
    void add(fmt::format_string<Args...> format, Args&&... arguments) {
        fmt::format_to(std::back_inserter(mShapes), format, std::forward<Args>(arguments)...);
    }

    const TimeAxis& mAxis;
    const Look mLook;
    std::string mShapes;
    std::string mTicks;
    std::string mMarks;
    std::string mReadings;
};

}  // namespace android
