#include "tools/burst/BurstTally.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace android {

namespace {

/** The usual rate that is near enough to be meant, or `rateHz` itself. */
double usualRateNear(double rateHz) {
    for (const double usualHz : {8000.0, 11025.0, 12000.0, 16000.0, 22050.0, 24000.0, 32000.0,
                                 44100.0, 48000.0, 88200.0, 96000.0, 176400.0, 192000.0}) {
        if (std::abs(rateHz / usualHz - 1) < 0.01) {
            return usualHz;
        }
    }
    return rateHz;
}

}  // namespace

BurstTally::Finding BurstTally::add(const Burst& burst) {
    Finding finding;
    const auto note = [&finding](bool applies, uint64_t& count, const char* text) {
        if (applies) {
            ++count;
            finding.notes.push_back(text);
        }
    };
    if (mBurstCount == 0) {
        mFirstPtsNs = burst.ptsNs;
        mTrend.add(0, 0);
    } else {
        judgeStep(burst, finding);
        note(burst.mode != mLast.mode, mModeChangeCount, "mode change");
    }
    note(burst.payloadByteCount == 0, mEmptyCount, "empty");
    note(burst.payloadByteCount > kAbsurdPayloadByteCount, mAbsurdSizeCount,
         burst.isAbandoned() ? "absurd size, given up" : "absurd size");
    note(burst.payloadOffset < Burst::kFixedHeaderByteCount, mShortOffsetCount,
         "payload offset below 20");
    note(burst.payloadOffset > kAbsurdPayloadOffset, mAbsurdOffsetCount, "absurd payload offset");
    note(burst.usedPayloadByteCount() % mFormat.frameBytes() != 0, mPartialFrameCount,
         "not whole frames");
    ++mBurstCount;
    mFreeRunCount += burst.mode == HW_SYNC_MODE_FREE_RUN ? 1 : 0;
    mPayloadByteCount += burst.usedPayloadByteCount();
    mExtensionByteCount += burst.headerByteCount - Burst::kFixedHeaderByteCount;
    mLast = burst;
    mIsBehindGarbage = false;
    return finding;
}

void BurstTally::judgeStep(const Burst& burst, Finding& finding) {
    finding.hasStep = true;
    finding.stepNs = static_cast<int64_t>(burst.ptsNs - mLast.ptsNs);
    finding.expectedNs = mFormat.durationNs(mLast.usedPayloadByteCount());
    // Absurd timestamps are as far apart as 64 bits allow.
    int64_t errorNs = 0;
    if (__builtin_sub_overflow(finding.stepNs, finding.expectedNs, &errorNs)) {
        errorNs = INT64_MIN + 1;
    }
    if (finding.stepNs < 0) {
        ++mJumpBackCount;
        finding.notes.push_back("jump back");
    } else if (errorNs > mToleranceNs) {
        ++mGapCount;
        finding.notes.push_back("gap");
    } else if (errorNs < -mToleranceNs) {
        ++mOverlapCount;
        finding.notes.push_back("overlap");
    }
    errorNs = std::max(errorNs, INT64_MIN + 1);
    if (std::abs(errorNs) > mToleranceNs && finding.stepNs >= 0) {
        mStepSumNs += static_cast<double>(finding.stepNs);
        mExpectedSumNs += static_cast<double>(finding.expectedNs);
    }
    mMaxStepErrorNs = std::max(mMaxStepErrorNs, std::abs(errorNs));
    const int64_t jitterNs = std::max(mToleranceNs, finding.expectedNs / 2);
    finding.isJitter = finding.stepNs >= 0 && std::abs(errorNs) <= jitterNs;
    judgeTrend(burst, finding, errorNs);
}

void BurstTally::judgeTrend(const Burst& burst, const Finding& finding, int64_t errorNs) {
    const bool isBehindFault =
        mIsBehindGarbage || mLast.usedPayloadByteCount() == 0 || !finding.isJitter;
    if (isBehindFault) {
        mTrend.breakOff();
    } else {
        mMaxSoundStepErrorNs = std::max(mMaxSoundStepErrorNs, std::abs(errorNs));
    }
    const int64_t payloadNs = mFormat.durationNs(mPayloadByteCount);
    mOffsetNs = static_cast<int64_t>(burst.ptsNs - mFirstPtsNs - static_cast<uint64_t>(payloadNs));
    mTrend.add(payloadNs, mOffsetNs);
}

void BurstTally::addGarbage(uint64_t byteCount) {
    mIsBehindGarbage = true;
    ++mGarbageRunCount;
    mGarbageByteCount += byteCount;
}

void BurstTally::finish(const BurstScanner& scanner) {
    mByteCount = scanner.byteCount();
    mVersionOneCount = scanner.versionOneCount();
    mCutHeaderByteCount = scanner.cutHeaderByteCount();
    mMissingPayloadByteCount = scanner.missingPayloadByteCount();
    mPayloadByteCount -= mMissingPayloadByteCount;
}

double BurstTally::impliedRateHz() const {
    // The trend knows nothing of gaps; but where every step is off by far, there is none.
    const TimestampTrend::Result trend = mTrend.result();
    if (trend.isKnown) {
        return usualRateNear(mFormat.rateHz / (1 + trend.driftPpm / 1e6));
    }
    return mStepSumNs > 0 ? usualRateNear(mFormat.rateHz * mExpectedSumNs / mStepSumNs) : 0.0;
}

std::string BurstTally::formatDoubt() const {
    std::string text =
        "most steps are off: are --rate, --channels and --format those of the payload?";
    const double rateHz = std::round(impliedRateHz());
    if (rateHz >= 1 && rateHz < 1e7) {
        text += fmt::format(" The timestamps fit {} Hz with {} channels of {} bits.",
                            static_cast<int64_t>(rateHz), mFormat.channelCount, mFormat.bits);
    }
    return text;
}

std::vector<std::pair<const char*, std::optional<double>>> BurstTally::trendFigures() const {
    const TimestampTrend::Result trend = mTrend.result();
    const auto known = [&trend](double value) {
        return trend.isKnown ? std::optional(value) : std::nullopt;
    };
    return {
        {"drift_ppm", known(trend.driftPpm)},
        {"drift_error_ppm", known(trend.errorPpm)},
        {"drift_ns", known(static_cast<double>(trend.driftNs))},
        {"jitter_rms_ns", known(static_cast<double>(trend.jitterRmsNs))},
        {"jitter_95_ns", known(static_cast<double>(trend.jitter95Ns))},
        {"offset_ns", static_cast<double>(mOffsetNs)},
        {"sound_max_step_error_ns", static_cast<double>(mMaxSoundStepErrorNs)},
        {"implied_rate_hz", isFormatDoubtful() ? std::optional(impliedRateHz()) : std::nullopt}};
}

std::vector<std::pair<const char*, uint64_t>> BurstTally::counts() const {
    std::vector<std::pair<const char*, uint64_t>> counts = {
        {"bytes", mByteCount},
        {"bursts", mBurstCount},
        {"free_run_bursts", mFreeRunCount},
        {"payload_bytes", mPayloadByteCount},
        {"extension_bytes", mExtensionByteCount},
        {"first_timestamp_ns", mFirstPtsNs},
        {"last_timestamp_ns", mLast.ptsNs},
        {"max_step_error_ns", static_cast<uint64_t>(mMaxStepErrorNs)}};
    const auto irregular = irregularCounts();
    counts.insert(counts.end(), irregular.begin(), irregular.end());
    return counts;
}

std::vector<std::pair<const char*, uint64_t>> BurstTally::irregularCounts() const {
    return {{"mode_changes", mModeChangeCount},
            {"garbage_runs", mGarbageRunCount},
            {"garbage_bytes", mGarbageByteCount},
            {"version_1_magics", mVersionOneCount},
            {"timestamp_gaps", mGapCount},
            {"timestamp_overlaps", mOverlapCount},
            {"timestamp_jumps_back", mJumpBackCount},
            {"empty_bursts", mEmptyCount},
            {"absurd_sizes", mAbsurdSizeCount},
            {"short_payload_offsets", mShortOffsetCount},
            {"absurd_payload_offsets", mAbsurdOffsetCount},
            {"partial_frame_bursts", mPartialFrameCount},
            {"cut_header_bytes", mCutHeaderByteCount},
            {"missing_payload_bytes", mMissingPayloadByteCount}};
}

std::vector<std::pair<const char*, uint64_t>> BurstTally::irregularities() const {
    return {{"mode changes", mModeChangeCount},
            {"runs of garbage", mGarbageRunCount},
            {"bytes of garbage", mGarbageByteCount},
            {"version-1 magics in it", mVersionOneCount},
            {"timestamp gaps", mGapCount},
            {"timestamp overlaps", mOverlapCount},
            {"timestamps that jump back", mJumpBackCount},
            {"bursts without payload", mEmptyCount},
            {"absurd payload sizes", mAbsurdSizeCount},
            {"payload offsets below 20", mShortOffsetCount},
            {"absurd payload offsets", mAbsurdOffsetCount},
            {"payloads of not whole frames", mPartialFrameCount},
            {"bytes of a header cut at the end", mCutHeaderByteCount},
            {"bytes missing from the last payload", mMissingPayloadByteCount}};
}

}  // namespace android
