#pragma once

#include <cstdint>
#include <string>

namespace android {

/** Where a mix goes, and as what. */
struct MixTarget {
    static constexpr double kNormalPeakDbfs = -1.0;

    /** What the library mixes in. */
    uint32_t mixBits() const { return isNormalized ? 32 : bits; }

    std::string path;    // empty: no file
    std::string device;  // empty: not played
    uint32_t rateHz;
    uint32_t bits;              // of the samples that come out
    bool isFloat = false;       // with 32 bits: real numbers, and what lies above full scale stays
    bool isNormalized = false;  // mixed with 32 bits, then brought to a peak of kNormalPeakDbfs
    double headroomDb = 0.0;    // by which all inputs are lowered
    int64_t preRollFrames;      // mixed in front, and heard nowhere
};

}  // namespace android
