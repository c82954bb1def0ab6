#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/audio/PcmFormat.h"
#include "tools/burst/Burst.h"
#include "tools/burst/BurstScanner.h"
#include "tools/burst/TimestampTrend.h"

namespace android {

/** Judges bursts one after the other and counts what is irregular about them. */
class BurstTally {
public:
    /** A larger payload or header is no sane sender's: minutes of audio in one burst. */
    static constexpr uint32_t kAbsurdPayloadByteCount = 16 << 20;
    static constexpr uint32_t kAbsurdPayloadOffset = 64 << 10;

    /** What one burst adds. */
    struct Finding {
        bool hasStep = false;            // there is a burst before it
        int64_t stepNs = 0;              // from the timestamp before
        int64_t expectedNs = 0;          // what the payload before lasts
        bool isJitter = false;           // a wrong step that is no longer than jitter may be
        std::vector<const char*> notes;  // words for what is irregular
    };

    /** Steps may differ from the payload's duration by `toleranceNs`. */
    BurstTally(const PcmFormat& format, int64_t toleranceNs)
        : mFormat(format), mToleranceNs(toleranceNs) {}

    Finding add(const Burst& burst);
    void addGarbage(uint64_t byteCount);
    /** Takes from the scanner what only the end of the stream tells. */
    void finish(const BurstScanner& scanner);

    /** Every count by its name in machine-readable output, irregularities last. */
    std::vector<std::pair<const char*, uint64_t>> counts() const;
    /** Those of irregularities alone. */
    std::vector<std::pair<const char*, uint64_t>> irregularCounts() const;
    /** The same by their names for people. */
    std::vector<std::pair<const char*, uint64_t>> irregularities() const;

    uint64_t burstCount() const { return mBurstCount; }
    uint64_t byteCount() const { return mByteCount; }
    uint64_t freeRunCount() const { return mFreeRunCount; }
    uint64_t payloadByteCount() const { return mPayloadByteCount; }
    int64_t durationNs() const { return mFormat.durationNs(mPayloadByteCount); }
    uint64_t firstPtsNs() const { return mFirstPtsNs; }
    uint64_t lastPtsNs() const { return mLast.ptsNs; }
    /** The largest difference of a step from its payload's duration, either way. */
    int64_t maxStepErrorNs() const { return mMaxStepErrorNs; }
    /** Without the steps to bursts behind a fault: garbage or a burst without payload in front, a jump
     *  back, or an error beyond both the tolerance and half of the payload's duration. */
    int64_t maxSoundStepErrorNs() const { return mMaxSoundStepErrorNs; }
    TimestampTrend::Result trend() const { return mTrend.result(); }
    /** The last timestamp minus the payload in front of it, both counted from the first. */
    int64_t offsetNs() const { return mOffsetNs; }
    /** What the trend says by its names in machine-readable output; empty values are unknown. */
    std::vector<std::pair<const char*, std::optional<double>>> trendFigures() const;

    /** Whether most steps are off, and off the same way: the format is not that of the payload. Jitter
     *  is off both ways. */
    bool isFormatDoubtful() const { return std::max(mGapCount, mOverlapCount) > mBurstCount / 2; }
    /** The question to ask then, with the rate that the timestamps fit. */
    std::string formatDoubt() const;

private:
    void judgeStep(const Burst& burst, Finding& finding);
    void judgeTrend(const Burst& burst, const Finding& finding, int64_t errorNs);
    double impliedRateHz() const;

    const PcmFormat mFormat;
    const int64_t mToleranceNs;
    Burst mLast;
    uint64_t mByteCount = 0;
    uint64_t mBurstCount = 0;
    uint64_t mFreeRunCount = 0;
    uint64_t mPayloadByteCount = 0;
    uint64_t mExtensionByteCount = 0;
    uint64_t mFirstPtsNs = 0;
    int64_t mMaxStepErrorNs = 0;
    int64_t mMaxSoundStepErrorNs = 0;
    int64_t mOffsetNs = 0;
    TimestampTrend mTrend;
    bool mIsBehindGarbage = false;
    double mStepSumNs = 0.0;  // of those that are gaps or overlaps
    double mExpectedSumNs = 0.0;
    uint64_t mGarbageRunCount = 0;
    uint64_t mGarbageByteCount = 0;
    uint64_t mGapCount = 0;
    uint64_t mOverlapCount = 0;
    uint64_t mJumpBackCount = 0;
    uint64_t mModeChangeCount = 0;
    uint64_t mEmptyCount = 0;
    uint64_t mAbsurdSizeCount = 0;
    uint64_t mShortOffsetCount = 0;
    uint64_t mAbsurdOffsetCount = 0;
    uint64_t mPartialFrameCount = 0;
    uint64_t mVersionOneCount = 0;
    uint64_t mCutHeaderByteCount = 0;
    uint64_t mMissingPayloadByteCount = 0;
};

}  // namespace android
