#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

/**
 * A value over time in bounded memory: when the columns are full, neighbours become one, and the
 * time that a column stands for doubles. Lowest and highest survive, so no outlier is lost.
 * Threads: one at a time.
 */
class Course {
public:
    /** Values from `beginSec` on, the last of them held until `endSec`. */
    struct Column {
        double beginSec;
        double endSec;
        float low;
        float high;
        double sum;
        int64_t valueCount;
    };

    Course() { mColumns.reserve(kMaxColumns); }

    void add(double timeSec, double value);
    /** There is no value from here on, until the next one. */
    void interrupt(double timeSec);

    const std::vector<Column>& columns() const { return mColumns; }
    int64_t valueCount() const { return mValueCount; }
    double mean() const { return mValueCount > 0 ? mSum / static_cast<double>(mValueCount) : 0.0; }
    /** 0 where there is no value. */
    double lowest() const;
    double highest() const;

private:
    static constexpr size_t kMaxColumns = 2048;

    void halve();

    std::vector<Column> mColumns;
    int64_t mValuesPerColumn = 1;
    bool mIsInterrupted = true;
    int64_t mValueCount = 0;
    double mSum = 0.0;
};

}  // namespace android
