#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/audio/PcmFormat.h"
#include "tools/burst/BurstTally.h"
#include "tools/course/HeardLeads.h"
#include "tools/course/SyncTrack.h"

namespace android {

struct DecisionRun;

/** Prints what a replay showed, to standard output. */
class ReplayReport {
public:
    enum class Form { TEXT, JSON, CSV };

    /** What is known beside the track. */
    struct Figures {
        std::string path;
        bool isVirtual = false;  // by the virtual clock
        int64_t elapsedNs = 0;
        uint64_t byteCount = 0;
        int64_t playedFrameCount = 0;
        int64_t shortBlockCount = 0;
        int64_t underrunCount = 0;
        int64_t longestUnderrunNs = 0;
    };

    ReplayReport(const SyncTrack& track, const HeardLeads& heard, const BurstTally& stream,
                 const SyncBounds& bounds, const PcmFormat& format, const Figures& figures)
        : mTrack(track),
          mHeard(heard),
          mStream(stream),
          mBounds(bounds),
          mFormat(format),
          mFigures(figures) {}

    /** Whose time it was. */
    static const char* clockName(const Figures& figures);
    /** What a mix that came too late for the sound card makes of the figures; empty: none did. */
    static std::string busyText(const Figures& figures);

    void print(Form form, bool isSummaryOnly) const;

private:
    void printDecisions() const;
    static void printRun(const DecisionRun& run);
    void printExcursions() const;
    void printHeard() const;
    void printStream() const;
    void printSummary() const;
    void printJson(bool isSummaryOnly) const;
    void printCsv() const;
    void printCsvSummary() const;
    /** The numbers of the summary by their names in machine-readable output. */
    std::vector<std::pair<const char*, int64_t>> counts() const;
    int64_t bytesToNs(int64_t byteCount) const {
        return mFormat.durationNs(static_cast<uint64_t>(byteCount));
    }

    const SyncTrack& mTrack;
    const HeardLeads& mHeard;
    const BurstTally& mStream;
    const SyncBounds mBounds;
    const PcmFormat mFormat;
    const Figures mFigures;
};

}  // namespace android
