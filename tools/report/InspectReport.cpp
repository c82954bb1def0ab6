#include "tools/report/InspectReport.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/process/ToolError.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;

const char* nameOf(hw_sync_mode_t mode) {
    return mode == HW_SYNC_MODE_FREE_RUN ? "free-run" : "av-sync";
}

std::string joined(const std::vector<const char*>& words, const char* separator) {
    std::string text;
    for (const char* word : words) {
        text += (text.empty() ? "" : separator) + std::string(word);
    }
    return text;
}

/** File names may hold any bytes. */
std::string printed(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

double ms(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

}  // namespace

void InspectReport::onGarbage(uint64_t offset, uint64_t byteCount) {
    mTally.addGarbage(byteCount);
    if (mTally.burstCount() == 0) {
        mHasLeadingGarbage = true;
        mLeadingGarbageByteCount = byteCount;
        return;
    }
    printGarbage(offset, byteCount);
}

void InspectReport::onBurst(const Burst& burst) {
    const BurstTally::Finding finding = mTally.add(burst);
    if (!mHasBegun) {
        begin();
    }
    if (mConfig.isSummaryOnly) {
        return;
    }
    if (mConfig.form == Form::JSON) {
        printJsonBurst(burst, finding);
    } else {
        printBurst(burst, finding);
    }
}

void InspectReport::begin() {
    mHasBegun = true;
    if (mConfig.form == Form::JSON) {
        printTo(stdout, "{{\"file\":{}", printed(mConfig.path));
        printTo(stdout, "{}", mConfig.isSummaryOnly ? "" : ",\"rows\":[");
    } else if (!mConfig.isSummaryOnly) {
        printTo(stdout, "{}",
                mConfig.form == Form::CSV
                    ? "kind,index,offset,header_bytes,bytes,mode,timestamp_ns,step_ns,"
                      "expected_step_ns,payload_offset,notes\n"
                    : "      offset   burst  mode       payload   timestamp s     step ms  "
                      "expected ms\n");
    }
    if (mHasLeadingGarbage) {
        printGarbage(0, mLeadingGarbageByteCount);
    }
}

void InspectReport::printBurst(const Burst& burst, const BurstTally::Finding& finding) const {
    if (mConfig.form == Form::CSV) {
        printTo(stdout, "burst,{},{},{},{},{},{},", burst.index, burst.offset,
                burst.headerByteCount, burst.payloadByteCount, nameOf(burst.mode), burst.ptsNs);
        if (finding.hasStep) {
            printTo(stdout, "{},{}", finding.stepNs, finding.expectedNs);
        } else {
            printTo(stdout, ",");
        }
        printTo(stdout, ",{},{}\n", burst.payloadOffset, joined(finding.notes, ";"));
        return;
    }
    printTo(stdout, "{:12}  {:6}  {:8} {:10}  {:12.6f}", burst.offset, burst.index,
            nameOf(burst.mode), burst.payloadByteCount, static_cast<double>(burst.ptsNs) / 1e9);
    if (finding.hasStep) {
        printTo(stdout, "  {:10.3f}  {:11.3f}", ms(finding.stepNs), ms(finding.expectedNs));
    }
    printTo(stdout, "{}{}\n", finding.notes.empty() ? "" : "  ", joined(finding.notes, ", "));
}

void InspectReport::printJsonRow(const std::string& row) {
    printTo(stdout, "{}\n{}", mHasRow ? "," : "", row);
    mHasRow = true;
}

void InspectReport::printJsonBurst(const Burst& burst, const BurstTally::Finding& finding) {
    Json row = {{"kind", "burst"},
                {"index", burst.index},
                {"offset", burst.offset},
                {"header_bytes", burst.headerByteCount},
                {"bytes", burst.payloadByteCount},
                {"mode", nameOf(burst.mode)},
                {"timestamp_ns", burst.ptsNs}};
    if (finding.hasStep) {
        row["step_ns"] = finding.stepNs;
        row["expected_step_ns"] = finding.expectedNs;
    }
    row["payload_offset"] = burst.payloadOffset;
    row["notes"] = finding.notes;
    printJsonRow(printed(row));
}

void InspectReport::printGarbage(uint64_t offset, uint64_t byteCount) {
    if (mConfig.isSummaryOnly) {
        return;
    }
    switch (mConfig.form) {
        case Form::TEXT:
            printTo(stdout, "{:12}          garbage  {:10}\n", offset, byteCount);
            break;
        case Form::JSON:
            printJsonRow(printed({{"kind", "garbage"}, {"offset", offset}, {"bytes", byteCount}}));
            break;
        case Form::CSV:
            printTo(stdout, "garbage,,{},,{},,,,,,\n", offset, byteCount);
            break;
    }
}

void InspectReport::finish(const BurstScanner& scanner) {
    mTally.finish(scanner);
    switch (mConfig.form) {
        case Form::TEXT:
            printTextSummary();
            break;
        case Form::JSON:
            printJsonSummary();
            break;
        case Form::CSV:
            printCsvSummary();
            break;
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        throw ToolError("standard output: writing failed; make room or choose another place");
    }
}

void InspectReport::printTextSummary() const {
    const BurstTally& tally = mTally;
    if (!mConfig.isSummaryOnly) {
        printTo(stdout, "\n");
    }
    printTo(stdout, "{}: {} bytes, {} bursts ({} free-run)\n", terminalText(mConfig.path),
            tally.byteCount(), tally.burstCount(), tally.freeRunCount());
    printTo(stdout, "  {} bytes of payload, {:.3f} s; timestamps from {:.3f} to {:.3f} s\n",
            tally.payloadByteCount(), static_cast<double>(tally.durationNs()) / 1e9,
            static_cast<double>(tally.firstPtsNs()) / 1e9,
            static_cast<double>(tally.lastPtsNs()) / 1e9);
    printTo(stdout, "  steps differ from the payload's duration by {:.3f} ms at most",
            ms(tally.maxStepErrorNs()));
    if (tally.maxSoundStepErrorNs() < tally.maxStepErrorNs()) {
        printTo(stdout, ", by {:.3f} ms without those behind a fault",
                ms(tally.maxSoundStepErrorNs()));
    }
    printTo(stdout, "\n");
    printTrend();
    bool isRegular = true;
    for (const auto& [name, count] : tally.irregularities()) {
        if (count > 0) {
            printTo(stdout, "  {:10} {}\n", count, name);
            isRegular = false;
        }
    }
    printTo(stdout, "{}", isRegular ? "  nothing irregular\n" : "");
    if (tally.isFormatDoubtful()) {
        printTo(stdout, "  {}\n", tally.formatDoubt());
    }
}

void InspectReport::printTrend() const {
    const TimestampTrend::Result trend = mTally.trend();
    if (!trend.isKnown || mTally.isFormatDoubtful()) {
        return;
    }
    printTo(stdout, "  timestamps run {:+.1f} ppm against the payload (standard error {:.1f})\n",
            trend.driftPpm, trend.errorPpm);
    printTo(stdout, "  the last one is {:+.3f} ms off, {:+.3f} ms of it by drift\n",
            ms(mTally.offsetNs()), ms(trend.driftNs));
    printTo(stdout, "  jitter: {:.3f} ms RMS, 95 % within {:.3f} ms\n", ms(trend.jitterRmsNs),
            ms(trend.jitter95Ns));
}

void InspectReport::printJsonSummary() const {
    Json summary;
    for (const auto& [name, count] : mTally.counts()) {
        summary[name] = count;
    }
    summary["duration_ns"] = mTally.durationNs();
    for (const auto& [name, value] : mTally.trendFigures()) {
        summary[name] = value ? Json(*value) : Json();
    }
    printTo(stdout, "{},\"summary\":{}}}\n", mConfig.isSummaryOnly ? "" : "\n]", printed(summary));
}

// Not beside rows: the counts are lines of another shape. --summary prints them alone.
void InspectReport::printCsvSummary() const {
    if (!mConfig.isSummaryOnly) {
        return;
    }
    printTo(stdout, "name,value\n");
    for (const auto& [name, count] : mTally.counts()) {
        printTo(stdout, "{},{}\n", name, count);
    }
    for (const auto& [name, value] : mTally.trendFigures()) {
        printTo(stdout, "{},", name);
        if (value) {
            printTo(stdout, "{:.12g}", *value);
        }
        printTo(stdout, "\n");
    }
}

}  // namespace android
