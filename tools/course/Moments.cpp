#include "tools/course/Moments.h"

#include <algorithm>

#include "tools/course/ColumnPairs.h"

namespace android {

void Moments::Column::merge(const Column& other) {
    if (other.count == 0) {
        return;
    }
    firstSec = count > 0 ? std::min(firstSec, other.firstSec) : other.firstSec;
    lastSec = count > 0 ? std::max(lastSec, other.lastSec) : other.lastSec;
    low = count > 0 ? std::min(low, other.low) : other.low;
    high = count > 0 ? std::max(high, other.high) : other.high;
    sum += other.sum;
    count += other.count;
}

void Moments::add(double timeSec, double value) {
    const double heldSec = std::max(timeSec, 0.0);
    while (heldSec >= mColumnSec * static_cast<double>(kMaxColumns)) {
        halve();
    }
    const auto index = static_cast<size_t>(heldSec / mColumnSec);
    if (index >= mColumns.size()) {
        mColumns.resize(index + 1);
    }
    mColumns[index].merge({.count = 1,
                           .firstSec = heldSec,
                           .lastSec = heldSec,
                           .low = value,
                           .high = value,
                           .sum = value});
    ++mCount;
}

void Moments::halve() {
    mergePairs(mColumns);
    mColumnSec *= 2;
}

}  // namespace android
