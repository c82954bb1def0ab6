#pragma once

#include <cstdint>
#include <vector>

#include "tools/audio/Handover.h"

namespace android {

/**
 * What is mixed in front of the first frame that is heard. In it gains walk to their start values
 * and converters run in: an input that a converter delays gets that much less silence in front, so
 * that all inputs are heard in step.
 */
class PreRoll {
public:
    /** At least `leastFrames` of the mix, and long enough for every converter. */
    PreRoll(const std::vector<Handover>& handovers, int64_t leastFrames);

    /** Of the mix. */
    int64_t frameCount() const { return mFrameCount; }
    /** Frames of silence in front of an input that is to be heard at `startSec` of the mix. */
    int64_t silentFrames(const Handover& handover, double startSec) const;

private:
    int64_t mFrameCount = 0;
};

}  // namespace android
