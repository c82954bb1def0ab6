#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

/**
 * What happens now and then, in bounded memory: each column of time counts how often, and keeps the
 * first and the last time and the lowest and the highest value. When the columns no longer reach the
 * time, neighbours become one. Nothing is left out, however much happens.
 * Threads: one at a time.
 */
class Moments {
public:
    struct Column {
        int64_t count = 0;  // 0: nothing else is valid
        double firstSec = 0.0;
        double lastSec = 0.0;
        double low = 0.0;
        double high = 0.0;
        double sum = 0.0;

        void merge(const Column& other);
        /** The value that is farther from 0. */
        double worst() const { return -low > high ? low : high; }
    };

    /** `timeSec` below 0 counts as 0. */
    void add(double timeSec, double value);

    /** Of equal width, from 0 on. */
    const std::vector<Column>& columns() const { return mColumns; }
    int64_t count() const { return mCount; }

private:
    static constexpr size_t kMaxColumns = 4096;

    void halve();

    std::vector<Column> mColumns;
    double mColumnSec = 1.0 / 1024;
    int64_t mCount = 0;
};

}  // namespace android
