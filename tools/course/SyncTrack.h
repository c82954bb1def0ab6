#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace android {

/** What one burst's header led to. */
struct SyncDecision {
    enum class Kind {
        NONE,
        ANCHOR,
        SILENCE,
        DROP,
        FREE_RUN,  // the header asks for no decision
    };

    int64_t timeNs = 0;  // since the first write
    uint64_t burstIndex = 0;
    uint64_t ptsNs = 0;
    bool hasClock = false;  // it was compared with the clock; not for a start, nor in free run
    uint64_t clockNs = 0;   // the position that the decision was taken with
    Kind kind = Kind::NONE;
    int64_t correctionMs = 0;  // silence inserted, or audio to be dropped from here on

    /** How far the timestamp is ahead of the clock. */
    int64_t leadNs() const { return static_cast<int64_t>(ptsNs - clockNs); }
    const char* name() const;
};

/** What happened to the clock, and when. */
struct SyncEvent {
    int64_t timeNs;
    std::string text;
};

/** What the policy tolerates and corrects, in ms; the library's own reading of its properties. */
struct SyncBounds {
    int64_t audioThresholdMs = 300;
    int64_t audioUpperMs = 1000;
    int64_t videoThresholdMs = 100;
    int64_t videoUpperMs = 1000;

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
    void addEvent(const SyncEvent& event);
    /** Audio that was discarded in fact. */
    void addDropped(int64_t byteCount);
    void addSilence(int64_t byteCount);
    /** Payload or silence that found no room in the stream in time. */
    void addMissed(int64_t byteCount);

    const std::vector<SyncDecision>& decisions() const { return mDecisions; }
    const std::vector<SyncEvent>& events() const { return mEvents; }
    int64_t droppedByteCount() const { return mDroppedByteCount; }
    int64_t silenceByteCount() const { return mSilenceByteCount; }
    int64_t missedByteCount() const { return mMissedByteCount; }
    size_t count(SyncDecision::Kind kind) const;
    std::vector<Excursion> excursions(const SyncBounds& bounds) const;

    /** The newest decision, for progress. */
    SyncDecision latest() const;

private:
    mutable std::mutex mLock;  // all below
    std::vector<SyncDecision> mDecisions;
    std::vector<SyncEvent> mEvents;
    int64_t mDroppedByteCount = 0;
    int64_t mSilenceByteCount = 0;
    int64_t mMissedByteCount = 0;
};

}  // namespace android
