#pragma once

#include <cstdint>
#include <vector>

#include "tools/burst/Fault.h"
#include "tools/burst/SeededRandom.h"

namespace android {

/** A span of the audio's time. */
struct TimeSpan {
    int64_t beginNs;
    int64_t endNs;
    bool holds(int64_t timeNs) const { return timeNs >= beginNs && timeNs < endNs; }
};

/**
 * Which frames go into which burst, with which timestamp, mode and fault; decided as a whole before
 * the first is written, so that faults can be strewn over all of it.
 */
class PackPlan {
public:
    struct Config {
        uint32_t rateHz;
        int64_t frameCount;       // of the audio
        int64_t burstFrameCount;  // in one burst
        int64_t firstPtsNs = 0;
        int64_t jitterNs = 0;            // timestamps are off by up to this, either way
        std::vector<TimeSpan> gaps;      // audio that is missing
        std::vector<TimeSpan> freeRuns;  // bursts that begin here ask for free run
        std::vector<FaultWish> wishes;

        /** Whether a burst begins in it; only such are left out, or ask for free run. */
        bool hasBurstIn(const TimeSpan& span) const;
    };

    struct Item {
        int64_t beginFrame;  // of the audio; frames between items are skipped
        int64_t frameCount;
        uint64_t ptsNs;
        bool isFreeRun;
        Fault fault;
    };

    /** Throws ToolError (usage) when nothing remains, or too little for the faults. */
    PackPlan(const Config& config, SeededRandom& random);

    const std::vector<Item>& items() const { return mItems; }

private:
    void lay(const Config& config, SeededRandom& random);
    void strew(const std::vector<FaultWish>& wishes, SeededRandom& random);

    std::vector<Item> mItems;
};

}  // namespace android
