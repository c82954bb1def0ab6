#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

/** Figures of one kind and how they are spread. */
class Distribution {
public:
    Distribution() = default;
    explicit Distribution(std::vector<double> values) : mValues(std::move(values)) {}

    void reserve(size_t count) { mValues.reserve(count); }
    void add(double value) { mValues.push_back(value); }
    void add(const Distribution& other) {
        mValues.insert(mValues.end(), other.mValues.begin(), other.mValues.end());
    }
    size_t count() const { return mValues.size(); }

    /** The smallest figure that this share of all does not exceed; 0 without any. */
    double percentile(double percent) {
        if (mValues.empty()) {
            return 0;
        }
        const auto below = static_cast<size_t>(percent / 100 * static_cast<double>(count()));
        const auto place =
            mValues.begin() + static_cast<std::ptrdiff_t>(std::min(below, mValues.size() - 1));
        std::nth_element(mValues.begin(), place, mValues.end());
        return *place;
    }
    double median() { return percentile(50); }
    double max() { return percentile(100); }

private:
    std::vector<double> mValues;
};
