#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

/**
 * How timestamps run against the payload: a straight line through their offsets, least squares, and
 * the jitter around it. A break, such as a gap, begins a new stretch: all stretches share the slope,
 * each has its own height. So a jump is no drift.
 *
 * In bounded memory: up to 65536 offsets the jitter's 95 % are exact, of more a uniform sample of
 * them, the same each time.
 * Threads: one at a time.
 */
class TimestampTrend {
public:
    /** An offset is a timestamp minus the time of the payload in front of it; `payloadNs` counts from
     *  the start and does not go back. */
    void add(int64_t payloadNs, int64_t offsetNs);
    /** The next offset belongs to a new stretch. */
    void breakOff();

    struct Result {
        bool isKnown = false;     // false: fewer than three offsets in every stretch
        double driftPpm = 0.0;    // above 0: timestamps run faster than the payload
        double errorPpm = 0.0;    // its standard error
        int64_t driftNs = 0;      // what it adds up to over all stretches
        int64_t jitterRmsNs = 0;  // around the line
        int64_t jitter95Ns = 0;   // 95 % of the offsets are no farther from it
    };
    Result result() const;

private:
    struct Sample {
        double timeSec;
        double offsetNs;
        uint64_t lot;  // drawn by its index: the smaller a sample is, the fewer lots are in it
    };
    /** Running means and sums of squares around them (Welford). */
    struct Stretch {
        int64_t count = 0;
        double timeSec = 0.0;
        double offsetNs = 0.0;
        double timeSquares = 0.0;
        double products = 0.0;
        double offsetSquares = 0.0;

        void add(double time, double offset);
    };

    static constexpr size_t kMaxSamples = 65536;

    void centre(std::vector<Sample>& samples) const;
    void thin();

    Stretch mStretch;  // the current one
    Stretch mAll;      // the sums of those before, without means
    int64_t mStretchCount = 0;
    int64_t mBeginNs = 0;   // of the current stretch
    int64_t mEndNs = 0;     // likewise, so far
    int64_t mLengthNs = 0;  // of those before
    uint64_t mIndex = 0;
    uint64_t mLotMask = 0;
    std::vector<Sample> mSamples;  // those of former stretches lie around their means
    size_t mFirstSample = 0;       // of the current one
};

}  // namespace android
