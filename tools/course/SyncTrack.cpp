#include "tools/course/SyncTrack.h"

#include <algorithm>

#include "hwsync/HwSyncBound.h"

namespace android {

namespace {

constexpr uint64_t kNsPerMs = 1'000'000;

/** The policy compares without sign: nothing reaches a negative bound. */
int64_t valueMs(const HwSyncBound& bound) {
    return static_cast<int64_t>(std::min<unsigned long>(bound.valueMs(), INT64_MAX / 2));
}

}  // namespace

SyncBounds SyncBounds::fromProperties() {
    return {.audioThresholdMs = valueMs(kAudioLeadThreshold),
            .audioUpperMs = valueMs(kAudioLeadUpper),
            .videoThresholdMs = valueMs(kVideoLeadThreshold),
            .videoUpperMs = valueMs(kVideoLeadUpper)};
}

bool SyncBounds::tolerate(const SyncDecision& decision) const {
    const auto leadMs =
        static_cast<int64_t>(decision.ptsNs / kNsPerMs - decision.clockNs / kNsPerMs);
    return leadMs <= audioThresholdMs && leadMs >= -videoThresholdMs;
}

void SyncTrack::addDecision(const SyncDecision& decision) {
    const std::lock_guard<std::mutex> lock(mLock);
    mDecisions.add(decision);
    ++mCounts[static_cast<size_t>(decision.kind)];
}

void SyncTrack::addHeard(uint64_t burstIndex, int64_t leadNs) {
    const std::lock_guard<std::mutex> lock(mLock);
    mDecisions.setHeard(burstIndex, leadNs);
}

void SyncTrack::addEvent(const SyncEvent& event) {
    const std::lock_guard<std::mutex> lock(mLock);
    mEvents.push_back(event);
}

void SyncTrack::addDropped(int64_t byteCount) {
    const std::lock_guard<std::mutex> lock(mLock);
    mDroppedByteCount += byteCount;
}

void SyncTrack::addSilence(int64_t byteCount) {
    const std::lock_guard<std::mutex> lock(mLock);
    mSilenceByteCount += byteCount;
}

void SyncTrack::addMissed(int64_t byteCount) {
    const std::lock_guard<std::mutex> lock(mLock);
    mMissedByteCount += byteCount;
}

std::vector<Excursion> SyncTrack::excursions(const SyncBounds& bounds) const {
    std::vector<Excursion> all;
    bool isOutside = false;
    for (const SyncDecision& decision : mDecisions) {
        if (!decision.hasClock) {
            continue;
        }
        const bool wasOutside = isOutside;
        isOutside = !bounds.tolerate(decision);
        if (isOutside && !wasOutside) {
            const auto next = std::find_if(
                mEvents.begin(), mEvents.end(),
                [&](const SyncEvent& event) { return event.timeNs > decision.timeNs; });
            all.push_back({.beginNs = decision.timeNs,
                           .endNs = decision.timeNs,
                           .worstLeadNs = decision.leadNs(),
                           .isOver = false,
                           .eventIndex = next - mEvents.begin() - 1});
        }
        if (isOutside || wasOutside) {
            Excursion& excursion = all.back();
            excursion.endNs = decision.timeNs;
            excursion.isOver = !isOutside;
            if (isOutside && std::abs(decision.leadNs()) > std::abs(excursion.worstLeadNs)) {
                excursion.worstLeadNs = decision.leadNs();
            }
        }
    }
    return all;
}

SyncDecision SyncTrack::latest() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mDecisions.empty() ? SyncDecision{} : mDecisions.back();
}

}  // namespace android
