#include "tools/burst/TimestampTrend.h"

#include <algorithm>
#include <cmath>

namespace android {

namespace {

/** SplitMix64: numbers without a pattern that the timestamps could share. */
uint64_t lotOf(uint64_t index) {
    uint64_t lot = (index + 1) * 0x9e3779b97f4a7c15;
    lot = (lot ^ (lot >> 30)) * 0xbf58476d1ce4e5b9;
    lot = (lot ^ (lot >> 27)) * 0x94d049bb133111eb;
    return lot ^ (lot >> 31);
}

// A line through two offsets meets both and says nothing of jitter.
constexpr int64_t kLeastCount = 3;

}  // namespace

void TimestampTrend::Stretch::add(double time, double offset) {
    ++count;
    const double timeStep = time - timeSec;
    const double offsetStep = offset - offsetNs;
    timeSec += timeStep / static_cast<double>(count);
    offsetNs += offsetStep / static_cast<double>(count);
    timeSquares += timeStep * (time - timeSec);
    products += timeStep * (offset - offsetNs);
    offsetSquares += offsetStep * (offset - offsetNs);
}

void TimestampTrend::add(int64_t payloadNs, int64_t offsetNs) {
    const Sample sample = {.timeSec = static_cast<double>(payloadNs) / 1e9,
                           .offsetNs = static_cast<double>(offsetNs),
                           .lot = lotOf(mIndex++)};
    mBeginNs = mStretch.count == 0 ? payloadNs : mBeginNs;
    mEndNs = payloadNs;
    mStretch.add(sample.timeSec, sample.offsetNs);
    if ((sample.lot & mLotMask) == 0) {
        mSamples.push_back(sample);
        if (mSamples.size() == kMaxSamples) {
            thin();
        }
    }
}

void TimestampTrend::breakOff() {
    if (mStretch.count < kLeastCount) {
        mSamples.resize(mFirstSample);
    } else {
        centre(mSamples);
        mAll.count += mStretch.count;
        mAll.timeSquares += mStretch.timeSquares;
        mAll.products += mStretch.products;
        mAll.offsetSquares += mStretch.offsetSquares;
        mLengthNs += mEndNs - mBeginNs;
        ++mStretchCount;
    }
    mFirstSample = mSamples.size();
    mStretch = Stretch();
}

/** Puts the current stretch's samples around its means. */
void TimestampTrend::centre(std::vector<Sample>& samples) const {
    for (size_t i = mFirstSample; i < samples.size(); ++i) {
        samples[i].timeSec -= mStretch.timeSec;
        samples[i].offsetNs -= mStretch.offsetNs;
    }
}

/** Keeps about every other sample. */
void TimestampTrend::thin() {
    mLotMask = mLotMask << 1 | 1;
    const auto isOut = [this](const Sample& sample) { return (sample.lot & mLotMask) != 0; };
    const auto first = mSamples.begin() + static_cast<std::ptrdiff_t>(mFirstSample);
    mFirstSample -= static_cast<size_t>(std::count_if(mSamples.begin(), first, isOut));
    mSamples.erase(std::remove_if(mSamples.begin(), mSamples.end(), isOut), mSamples.end());
}

TimestampTrend::Result TimestampTrend::result() const {
    TimestampTrend whole = *this;
    whole.breakOff();
    const Stretch& sums = whole.mAll;
    // Each stretch has a mean of its own, and all of them one slope.
    const int64_t freedom = sums.count - whole.mStretchCount - 1;
    if (sums.timeSquares <= 0 || freedom < 1) {
        return {};
    }
    const double slope = sums.products / sums.timeSquares;  // ns a second
    const double squares = std::max(sums.offsetSquares - slope * sums.products, 0.0);
    const double error = std::sqrt(squares / static_cast<double>(freedom) / sums.timeSquares);
    std::vector<double> distances;
    for (const Sample& sample : whole.mSamples) {
        distances.push_back(std::abs(sample.offsetNs - slope * sample.timeSec));
    }
    double distance95 = 0.0;
    if (!distances.empty()) {
        const auto at =
            distances.begin() + static_cast<std::ptrdiff_t>(distances.size() * 95 / 100);
        const auto nth = std::min(at, distances.end() - 1);
        std::nth_element(distances.begin(), nth, distances.end());
        distance95 = *nth;
    }
    return {.isKnown = true,
            .driftPpm = slope / 1000,
            .errorPpm = error / 1000,
            .driftNs = std::llround(slope * static_cast<double>(whole.mLengthNs) / 1e9),
            .jitterRmsNs = std::llround(std::sqrt(squares / static_cast<double>(sums.count))),
            .jitter95Ns = std::llround(distance95)};
}

}  // namespace android
