#include "tools/chart/Strip.h"

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(Strip, ScalesRunFromTheLowEndToTheHighOne) {
    using Kind = Strip::Scale::Kind;
    for (const Kind kind : {Kind::LINEAR, Kind::LOGARITHMIC, Kind::SQUEEZED}) {
        const Strip::Scale scale = {.low = 1, .high = 1000, .kind = kind};
        EXPECT_NEAR(0.0, scale.share(1), 1e-12);
        EXPECT_NEAR(1.0, scale.share(1000), 1e-12);
        EXPECT_LT(scale.share(10), scale.share(100));
    }
    EXPECT_NEAR(1.0 / 3.0,
                (Strip::Scale{.low = 1, .high = 1000, .kind = Kind::LOGARITHMIC}.share(10)), 1e-9);
}

TEST(Strip, EveryValueOfACourseShowsInItsColumn) {
    const TimeAxis axis(10.0, 10);
    Course course;
    course.add(0.5, 1.0);
    course.add(0.9, 5.0);
    course.interrupt(1.0);
    course.add(7.0, -3.0);
    course.interrupt(9.5);
    const Strip::Ranges ranges = Strip::rangesOf(axis, course);
    ASSERT_EQ(10u, ranges.size());
    EXPECT_EQ(1.0, ranges[0].low);
    EXPECT_EQ(5.0, ranges[0].high);
    EXPECT_TRUE(ranges[3].isEmpty);
    for (const size_t column : {7u, 8u, 9u}) {
        EXPECT_EQ(-3.0, ranges[column].low) << "held until the interruption";
    }
}

TEST(Strip, LongTextsAreWholeAndMarkupIsEscaped) {
    const TimeAxis axis(10.0, 100);
    Strip strip(
        axis, {.kind = "level", .title = "a < b", .heightPx = 50, .scale = {.low = 0, .high = 1}});
    const std::string tip(5000, 'x');
    strip.event(2.0, tip);
    strip.bound(2.0);  // beyond the scale
    const std::string html = strip.html();
    EXPECT_NE(std::string::npos, html.find("<title>" + tip + "</title>"));
    EXPECT_NE(std::string::npos, html.find("a &lt; b"));
    EXPECT_NE(std::string::npos, html.find("M20.00 0V1000"));
    EXPECT_EQ(std::string::npos, html.find("class=\"bound\""));
}

}  // namespace
}  // namespace android
