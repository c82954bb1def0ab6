#include "tools/burst/BurstTally.h"

#include <algorithm>
#include <cstdlib>

namespace android {

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
    mMaxStepErrorNs = std::max(mMaxStepErrorNs, std::abs(std::max(errorNs, INT64_MIN + 1)));
}

void BurstTally::addGarbage(uint64_t byteCount) {
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

std::vector<std::pair<const char*, uint64_t>> BurstTally::counts() const {
    return {{"bytes", mByteCount},
            {"bursts", mBurstCount},
            {"free_run_bursts", mFreeRunCount},
            {"payload_bytes", mPayloadByteCount},
            {"extension_bytes", mExtensionByteCount},
            {"first_timestamp_ns", mFirstPtsNs},
            {"last_timestamp_ns", mLast.ptsNs},
            {"max_step_error_ns", static_cast<uint64_t>(mMaxStepErrorNs)},
            {"mode_changes", mModeChangeCount},
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
