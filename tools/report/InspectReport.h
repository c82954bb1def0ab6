#pragma once

#include <cstdint>
#include <string>

#include "tools/burst/BurstSink.h"
#include "tools/burst/BurstTally.h"

namespace android {

/**
 * Prints bursts and garbage to standard output as they are found, and the counts at the end.
 * Nothing is printed before the first burst, so that a file without any leaves no half a document.
 */
class InspectReport : public BurstSink {
public:
    enum class Form { TEXT, JSON, CSV };

    struct Config {
        Form form = Form::TEXT;
        bool isSummaryOnly = false;
        std::string path;
    };

    InspectReport(BurstTally& tally, const Config& config) : mTally(tally), mConfig(config) {}

    void onGarbage(uint64_t offset, uint64_t byteCount) override;
    void onBurst(const Burst& burst) override;
    /** The scanner is at its end, and it found a burst. Throws ToolError when printing failed. */
    void finish(const BurstScanner& scanner);

private:
    void begin();
    void printBurst(const Burst& burst, const BurstTally::Finding& finding) const;
    void printJsonRow(const std::string& row);
    void printJsonBurst(const Burst& burst, const BurstTally::Finding& finding);
    void printGarbage(uint64_t offset, uint64_t byteCount);
    void printTextSummary() const;
    void printTrend() const;
    void printJsonSummary() const;
    void printCsvSummary() const;

    BurstTally& mTally;
    const Config mConfig;
    bool mHasBegun = false;
    bool mHasRow = false;  // of JSON
    bool mHasLeadingGarbage = false;
    uint64_t mLeadingGarbageByteCount = 0;  // before the first burst
};

}  // namespace android
