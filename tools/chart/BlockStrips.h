#pragma once

#include <string>

#include "tools/chart/Strip.h"
#include "tools/course/BlockTrack.h"

namespace android {

/** The sizes of the blocks, and the times of cycles and callbacks. */
class BlockStrips {
public:
    BlockStrips(const TimeAxis& axis, const BlockTrack& blocks);

    std::string html() const;

private:
    void drawSizes(const BlockTrack& blocks);
    void drawTimes(const BlockTrack& blocks);

    const TimeAxis& mAxis;
    Strip mSizes;
    Strip mTimes;
};

}  // namespace android
