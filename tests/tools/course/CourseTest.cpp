#include "tools/course/Course.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tools/course/Envelope.h"

namespace android {
namespace {

TEST(Course, KeepsOutliersAndSumsHoweverLongItGets) {
    Course course;
    const int valueCount = 100'000;
    for (int i = 0; i < valueCount; ++i) {
        course.add(i, i == 777 ? -5.0 : i == 77'777 ? 9.0 : 1.0);
    }
    EXPECT_GE(2048u, course.columns().size());
    EXPECT_EQ(valueCount, course.valueCount());
    EXPECT_DOUBLE_EQ(-5.0, course.lowest());
    EXPECT_DOUBLE_EQ(9.0, course.highest());
    int64_t counted = 0;
    double sum = 0.0;
    for (const Course::Column& column : course.columns()) {
        EXPECT_EQ(counted, column.beginSec) << "no gap and no overlap";
        counted += column.valueCount;
        sum += column.sum;
    }
    EXPECT_EQ(valueCount, counted);
    EXPECT_DOUBLE_EQ(valueCount + 2.0, sum);
}

TEST(Course, AnInterruptionEndsAColumn) {
    Course course;
    course.add(1.0, 3.0);
    course.interrupt(2.0);
    course.add(5.0, 4.0);
    ASSERT_EQ(2u, course.columns().size());
    EXPECT_EQ(2.0, course.columns()[0].endSec);
    EXPECT_EQ(5.0, course.columns()[1].beginSec);
}

TEST(Envelope, KeepsAPeakThroughHalvingsAndLeavesGapsEmpty) {
    Envelope envelope({.rateHz = 48000, .channelCount = 1, .bits = 16});
    const std::vector<int16_t> quiet(1000, 100);
    const int16_t loud[] = {-16384, 8192};
    envelope.seek(-500);  // of which nothing is kept
    envelope.add(quiet.data(), 1000);
    EXPECT_EQ(500, envelope.nextFrame());
    envelope.add(loud, 2);
    envelope.seek(2'000'000);
    envelope.add(quiet.data(), 1000);
    EXPECT_GE(2048u, envelope.columns().size());

    const auto framesPerColumn =
        static_cast<size_t>(std::lround(envelope.secondsPerColumn() * 48000));
    EXPECT_FLOAT_EQ(-0.5f, envelope.columns()[500 / framesPerColumn].low);
    EXPECT_FLOAT_EQ(0.25f, envelope.columns()[500 / framesPerColumn].high);
    EXPECT_EQ(0, envelope.columns()[1'000'000 / framesPerColumn].sampleCount);
    int64_t sampleCount = 0;
    for (const Envelope::Column& column : envelope.columns()) {
        sampleCount += column.sampleCount;
    }
    EXPECT_EQ(500 + 2 + 1000, sampleCount);
}

}  // namespace
}  // namespace android
