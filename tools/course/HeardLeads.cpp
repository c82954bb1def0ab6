#include "tools/course/HeardLeads.h"

#include <cmath>

namespace android {

void HeardLeads::Beyond::add(double leadMs, double durationSec) {
    earlySec += range.isEarly(leadMs) ? durationSec : 0.0;
    lateSec += range.isLate(leadMs) ? durationSec : 0.0;
}

HeardLeads::HeardLeads(const std::optional<LeadRange>& limit) {
    if (limit) {
        mLimit = Beyond{.range = *limit};
    }
}

void HeardLeads::add(const Burst& burst) {
    mLeads.add(burst.timeSec, burst.leadMs);
    mBursts.add(burst.timeSec, static_cast<double>(burst.index));
    mMeasuredSec += burst.durationSec;
    mWeightedSum += burst.leadMs * burst.durationSec;
    mDetectability.add(burst.leadMs, burst.durationSec);
    mAcceptability.add(burst.leadMs, burst.durationSec);
    if (mLimit) {
        mLimit->add(burst.leadMs, burst.durationSec);
    }
    if (!mWorst || std::abs(burst.leadMs) > std::abs(mWorst->leadMs)) {
        mWorst = burst;
    }
}

void HeardLeads::interrupt(double timeSec) {
    mLeads.interrupt(timeSec);
    mBursts.interrupt(timeSec);
}

}  // namespace android
