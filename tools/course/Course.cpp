#include "tools/course/Course.h"

#include <algorithm>

namespace android {

void Course::add(double timeSec, double value) {
    const auto level = static_cast<float>(value);
    ++mValueCount;
    mSum += value;
    if (!mIsInterrupted) {
        Column& last = mColumns.back();
        last.endSec = timeSec;
        if (last.valueCount < mValuesPerColumn) {
            last.low = std::min(last.low, level);
            last.high = std::max(last.high, level);
            last.sum += value;
            ++last.valueCount;
            return;
        }
    }
    if (mColumns.size() == kMaxColumns) {
        halve();
    }
    mColumns.push_back({.beginSec = timeSec,
                        .endSec = timeSec,
                        .low = level,
                        .high = level,
                        .sum = value,
                        .valueCount = 1});
    mIsInterrupted = false;
}

void Course::interrupt(double timeSec) {
    if (!mIsInterrupted) {
        mColumns.back().endSec = timeSec;
        mIsInterrupted = true;
    }
}

void Course::halve() {
    for (size_t i = 0; i < mColumns.size() / 2; ++i) {
        const Column& former = mColumns[2 * i];
        const Column& latter = mColumns[2 * i + 1];
        mColumns[i] = {.beginSec = former.beginSec,
                       .endSec = latter.endSec,
                       .low = std::min(former.low, latter.low),
                       .high = std::max(former.high, latter.high),
                       .sum = former.sum + latter.sum,
                       .valueCount = former.valueCount + latter.valueCount};
    }
    mColumns.resize(mColumns.size() / 2);
    mValuesPerColumn *= 2;
}

double Course::lowest() const {
    const auto least =
        std::min_element(mColumns.begin(), mColumns.end(),
                         [](const Column& a, const Column& b) { return a.low < b.low; });
    return least == mColumns.end() ? 0.0 : double{least->low};
}

double Course::highest() const {
    const auto most =
        std::max_element(mColumns.begin(), mColumns.end(),
                         [](const Column& a, const Column& b) { return a.high < b.high; });
    return most == mColumns.end() ? 0.0 : double{most->high};
}

}  // namespace android
