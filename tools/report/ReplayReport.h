#pragma once

#include <cstdint>
#include <string>

#include "tools/audio/PcmFormat.h"
#include "tools/course/SyncTrack.h"

namespace android {

/** Prints what a replay showed, to standard output. */
class ReplayReport {
public:
    enum class Form { TEXT, JSON, CSV };

    /** What is known beside the track. */
    struct Figures {
        std::string path;
        int64_t elapsedNs = 0;
        uint64_t byteCount = 0;
        int64_t playedFrameCount = 0;
        int64_t shortBlockCount = 0;
        int64_t underrunCount = 0;
    };

    ReplayReport(const SyncTrack& track, const SyncBounds& bounds, const PcmFormat& format,
                 const Figures& figures)
        : mTrack(track), mBounds(bounds), mFormat(format), mFigures(figures) {}

    void print(Form form, bool isSummaryOnly) const;

private:
    void printDecisions() const;
    size_t printRun(size_t first) const;
    void printExcursions() const;
    void printSummary() const;
    void printJson(bool isSummaryOnly) const;
    void printCsv() const;
    int64_t bytesToNs(int64_t byteCount) const {
        return mFormat.durationNs(static_cast<uint64_t>(byteCount));
    }

    const SyncTrack& mTrack;
    const SyncBounds mBounds;
    const PcmFormat mFormat;
    const Figures mFigures;
};

}  // namespace android
