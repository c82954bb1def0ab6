#pragma once

#include <cstdint>
#include <string>

namespace android {

/** Where a mix goes, and as what. */
struct MixTarget {
    std::string path;    // empty: no file
    std::string device;  // empty: not played
    uint32_t rateHz;
    uint32_t bits;
    int64_t preRollFrames;  // mixed in front, and heard nowhere
};

}  // namespace android
