#pragma once

#include <cstdint>

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
    bool isHeard = false;   // from its first frame on, so that its heard lead is known
    uint64_t clockNs = 0;   // the position that the decision was taken with
    Kind kind = Kind::NONE;
    int64_t correctionMs = 0;  // silence inserted, or audio to be dropped from here on
    int64_t heardLeadNs = 0;   // how far the timestamp was ahead of the clock when it was heard

    /** How far the timestamp is ahead of the clock. */
    int64_t leadNs() const { return static_cast<int64_t>(ptsNs - clockNs); }
    static const char* nameOf(Kind kind);
    const char* name() const { return nameOf(kind); }
};

}  // namespace android
