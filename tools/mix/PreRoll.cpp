#include "tools/mix/PreRoll.h"

#include <algorithm>
#include <cmath>

namespace android {

namespace {

/** How far the nearest whole frames of the inputs lie from the end of the pre-roll, at most. */
double worstErrorSec(const std::vector<Handover>& handovers, int64_t frameCount) {
    double worst = 0.0;
    for (const Handover& handover : handovers) {
        const int64_t scaled = frameCount * handover.config.sample_rate;
        const int64_t beyond = scaled % handover.mixRateHz;
        const auto error =
            static_cast<double>(std::min<int64_t>(beyond, handover.mixRateHz - beyond));
        worst = std::max(worst, error / handover.mixRateHz / handover.config.sample_rate);
    }
    return worst;
}

}  // namespace

PreRoll::PreRoll(const std::vector<Handover>& handovers, int64_t leastFrames) {
    for (const Handover& handover : handovers) {
        leastFrames = std::max(leastFrames, handover.mixFramesOf(0));
    }
    mFrameCount = leastFrames;
    if (leastFrames == 0 || handovers.empty()) {
        return;
    }
    // Silence comes in whole frames of each input. Common rates all have a whole number of them
    // within 20 ms, so one of the next lengths suits every input; if none does, the best is taken.
    const int64_t endFrames = leastFrames + handovers.front().mixRateHz / 50;
    double bestErrorSec = worstErrorSec(handovers, leastFrames);
    for (int64_t frames = leastFrames + 1; frames <= endFrames && bestErrorSec > 0.0; ++frames) {
        const double errorSec = worstErrorSec(handovers, frames);
        if (errorSec < bestErrorSec) {
            bestErrorSec = errorSec;
            mFrameCount = frames;
        }
    }
}

int64_t PreRoll::silentFrames(const Handover& handover, double startSec) const {
    const double mixSec = static_cast<double>(mFrameCount) / handover.mixRateHz;
    return std::llround((startSec + mixSec) * handover.config.sample_rate) - handover.delayFrames;
}

}  // namespace android
