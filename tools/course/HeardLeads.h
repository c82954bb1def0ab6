#pragma once

#include <cstdint>
#include <optional>

#include "tools/course/Course.h"
#include "tools/course/LeadRange.h"

namespace android {

/**
 * How far sound was ahead of the clock when it was heard, and for how long that was beyond what
 * viewers notice and accept, in bounded memory. A burst counts for as long as its payload lasts.
 * Threads: one at a time.
 */
class HeardLeads {
public:
    /** Time beyond a range. */
    struct Beyond {
        LeadRange range;
        double earlySec = 0.0;
        double lateSec = 0.0;

        void add(double leadMs, double durationSec);
        bool isAny() const { return earlySec > 0.0 || lateSec > 0.0; }
    };
    struct Burst {
        uint64_t index;
        double timeSec;  // when its first frame was heard
        double leadMs;
        double durationSec;
    };

    /** `limit` is the caller's own range, if there is one. */
    explicit HeardLeads(const std::optional<LeadRange>& limit);

    void add(const Burst& burst);
    void interrupt(double timeSec);

    /** In ms. */
    const Course& leads() const { return mLeads; }
    /** Their indices over the same times. */
    const Course& bursts() const { return mBursts; }
    double measuredSec() const { return mMeasuredSec; }
    double meanMs() const { return mMeasuredSec > 0.0 ? mWeightedSum / mMeasuredSec : 0.0; }
    const Beyond& beyondDetectability() const { return mDetectability; }
    const Beyond& beyondAcceptability() const { return mAcceptability; }
    const std::optional<Beyond>& beyondLimit() const { return mLimit; }
    /** The burst that is farthest from 0; if there is one. */
    const std::optional<Burst>& worst() const { return mWorst; }

private:
    Course mLeads;
    Course mBursts;
    double mMeasuredSec = 0.0;
    double mWeightedSum = 0.0;
    Beyond mDetectability{.range = kDetectability};
    Beyond mAcceptability{.range = kAcceptability};
    std::optional<Beyond> mLimit;
    std::optional<Burst> mWorst;
};

}  // namespace android
