#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "tools/course/DecisionLog.h"
#include "tools/course/SyncDecision.h"

namespace android {

/** What happened to the clock, and when. */
struct SyncEvent {
    int64_t timeNs;
    std::string text;
};

/** What the policy tolerates and corrects, in ms; the library's own reading of its properties. */
struct SyncBounds {
    int64_t audioThresholdMs = 0;
    int64_t audioUpperMs = 0;
    int64_t videoThresholdMs = 0;
    int64_t videoUpperMs = 0;

    static SyncBounds fromProperties();
    /** Whether this lead is tolerated; as the policy, it compares whole ms of both times. */
    bool tolerate(const SyncDecision& decision) const;
};

/** A time for which the lead was beyond the thresholds. */
struct Excursion {
    int64_t beginNs = 0;
    int64_t endNs = 0;  // the first decision that was inside again; the last one if none was
    int64_t worstLeadNs = 0;
    bool isOver = false;
    int64_t eventIndex = -1;  // the last event before it, if it began before the next one
};

/** The course of a replay. Threads: any may add; read what is returned by reference after the end. */
class SyncTrack {
public:
    void addDecision(const SyncDecision& decision);
    /** The decision's burst was heard with this lead. */
    void addHeard(uint64_t burstIndex, int64_t leadNs);
    void addEvent(const SyncEvent& event);
    /** Audio that was discarded in fact. */
    void addDropped(int64_t byteCount);
    void addSilence(int64_t byteCount);
    /** Payload or silence that found no room in the stream in time. */
    void addMissed(int64_t byteCount);

    const DecisionLog& decisions() const { return mDecisions; }
    const std::vector<SyncEvent>& events() const { return mEvents; }
    int64_t droppedByteCount() const { return mDroppedByteCount; }
    int64_t silenceByteCount() const { return mSilenceByteCount; }
    int64_t missedByteCount() const { return mMissedByteCount; }
    size_t count(SyncDecision::Kind kind) const { return mCounts[static_cast<size_t>(kind)]; }
    std::vector<Excursion> excursions(const SyncBounds& bounds) const;

    /** The newest decision, for progress. */
    SyncDecision latest() const;

private:
    mutable std::mutex mLock;  // all below
    DecisionLog mDecisions;
    size_t mCounts[5] = {};  // by kind
    std::vector<SyncEvent> mEvents;
    int64_t mDroppedByteCount = 0;
    int64_t mSilenceByteCount = 0;
    int64_t mMissedByteCount = 0;
};

}  // namespace android
