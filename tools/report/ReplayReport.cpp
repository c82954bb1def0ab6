#include "tools/report/ReplayReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/course/DecisionRun.h"
#include "tools/process/ToolError.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;
using Kind = SyncDecision::Kind;

double sec(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

double ms(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

Json jsonOf(const SyncDecision& decision) {
    Json row = {{"time_ns", decision.timeNs},
                {"burst", decision.burstIndex},
                {"timestamp_ns", decision.ptsNs},
                {"decision", decision.name()}};
    if (decision.hasClock) {
        row["clock_ns"] = decision.clockNs;
        row["lead_ns"] = decision.leadNs();
    }
    if (decision.isHeard) {
        row["heard_lead_ns"] = decision.heardLeadNs;
    }
    if (decision.correctionMs > 0) {
        row["correction_ms"] = decision.correctionMs;
    }
    return row;
}

int64_t nsOf(double seconds) {
    return std::llround(seconds * 1e9);
}

int64_t nsOfMs(double milliseconds) {
    return std::llround(milliseconds * 1e6);
}

Json jsonOf(const HeardLeads::Beyond& beyond) {
    return {{"early_bound_ms", beyond.range.earlyMs},
            {"late_bound_ms", beyond.range.lateMs},
            {"early_ns", nsOf(beyond.earlySec)},
            {"late_ns", nsOf(beyond.lateSec)}};
}

Json jsonOf(const HeardLeads& heard) {
    Json json = {{"bursts", heard.leads().valueCount()},
                 {"measured_ns", nsOf(heard.measuredSec())}};
    if (heard.worst()) {
        json["lowest_lead_ns"] = nsOfMs(heard.leads().lowest());
        json["highest_lead_ns"] = nsOfMs(heard.leads().highest());
        json["mean_lead_ns"] = nsOfMs(heard.meanMs());
        json["worst"] = {{"time_ns", nsOf(heard.worst()->timeSec)},
                         {"burst", heard.worst()->index},
                         {"lead_ns", nsOfMs(heard.worst()->leadMs)}};
    }
    json["beyond_detectability"] = jsonOf(heard.beyondDetectability());
    json["beyond_acceptability"] = jsonOf(heard.beyondAcceptability());
    if (heard.beyondLimit()) {
        json["beyond_max_heard"] = jsonOf(*heard.beyondLimit());
    }
    return json;
}

/** What is irregular about the stream, by the names of inspect. */
Json jsonOf(const BurstTally& stream) {
    Json json;
    for (const auto& [name, count] : stream.irregularCounts()) {
        json[name] = count;
    }
    for (const auto& [name, value] : stream.trendFigures()) {
        json[name] = value ? Json(*value) : Json();
    }
    return json;
}

}  // namespace

void ReplayReport::print(Form form, bool isSummaryOnly) const {
    switch (form) {
        case Form::TEXT:
            if (!isSummaryOnly) {
                printDecisions();
            }
            printExcursions();
            printHeard();
            printSummary();
            break;
        case Form::JSON:
            printJson(isSummaryOnly);
            break;
        case Form::CSV:
            isSummaryOnly ? printCsvSummary() : printCsv();
            break;
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        throw ToolError("standard output: writing failed; make room or choose another place");
    }
}

void ReplayReport::printDecisions() const {
    printTo(stdout, "  time s        bursts  decision   audio lead ms         correction ms\n");
    DecisionRun::forEach(mTrack.decisions(), [](const DecisionRun& run) { printRun(run); });
    printTo(stdout, "\n");
}

void ReplayReport::printRun(const DecisionRun& run) {
    const std::string bursts = run.count() > 1
                                   ? fmt::format("{}-{}", run.first.burstIndex, run.lastBurst)
                                   : fmt::format("{}", run.first.burstIndex);
    printTo(stdout, "{:8.3f}  {:>12}  {:9}", sec(run.first.timeNs), bursts, run.first.name());
    std::string lead;
    if (run.first.hasClock) {
        lead = run.count() > 1
                   ? fmt::format("{:+.1f} to {:+.1f}", ms(run.lowestLeadNs), ms(run.highestLeadNs))
                   : fmt::format("{:+.1f}", ms(run.lowestLeadNs));
    }
    if (run.first.correctionMs > 0) {
        printTo(stdout, "  {:20}  {}\n", lead, run.first.correctionMs);
    } else {
        printTo(stdout, "  {}\n", lead);
    }
}

void ReplayReport::printExcursions() const {
    const auto excursions = mTrack.excursions(mBounds);
    const auto& events = mTrack.events();
    const auto printThoseOf = [&](int64_t eventIndex) {
        bool isAny = false;
        for (const Excursion& excursion : excursions) {
            if (excursion.eventIndex != eventIndex) {
                continue;
            }
            isAny = true;
            printTo(stdout, "    outside from {:.3f} s (worst {:+.1f} ms), ",
                    sec(excursion.beginNs), ms(excursion.worstLeadNs));
            if (!excursion.isOver) {
                printTo(stdout, "still so at {:.3f} s\n", sec(excursion.endNs));
                continue;
            }
            printTo(stdout, "inside again at {:.3f} s, {:.1f} ms later", sec(excursion.endNs),
                    ms(excursion.endNs - excursion.beginNs));
            if (eventIndex >= 0) {
                const SyncEvent& event = events[static_cast<size_t>(eventIndex)];
                printTo(stdout, ", {:.1f} ms after the event", ms(excursion.endNs - event.timeNs));
            }
            printTo(stdout, "\n");
        }
        return isAny;
    };
    printTo(stdout, "audio lead, tolerated from {:+} to {:+} ms:\n", -mBounds.videoThresholdMs,
            mBounds.audioThresholdMs);
    printTo(stdout, "  {:>8}\n", "start");
    printTo(stdout, "{}", printThoseOf(-1) ? "" : "    inside\n");
    for (size_t index = 0; index < events.size(); ++index) {
        printTo(stdout, "  {:8.3f} s  {}\n", sec(events[index].timeNs), events[index].text);
        printTo(stdout, "{}",
                printThoseOf(static_cast<int64_t>(index)) ? "" : "    stayed inside\n");
    }
}

void ReplayReport::printHeard() const {
    if (!mHeard.worst()) {
        printTo(stdout, "\nheard lead: no burst was heard from its first frame on\n");
        return;
    }
    printTo(stdout,
            "\nheard lead, {:+.1f} to {:+.1f} ms, mean {:+.1f} ms, over the {:.3f} s that were "
            "measured:\n",
            mHeard.leads().lowest(), mHeard.leads().highest(), mHeard.meanMs(),
            mHeard.measuredSec());
    const auto printBeyond = [](const char* whose, const HeardLeads::Beyond& beyond) {
        printTo(stdout, "  beyond {} ({:+g} and {:+g} ms): {:.3f} s early, {:.3f} s late\n", whose,
                beyond.range.earlyMs, beyond.range.lateMs, beyond.earlySec, beyond.lateSec);
    };
    printBeyond("what viewers notice", mHeard.beyondDetectability());
    printBeyond("what they accept", mHeard.beyondAcceptability());
    if (mHeard.beyondLimit()) {
        printBeyond("--max-heard", *mHeard.beyondLimit());
    }
}

void ReplayReport::printStream() const {
    for (const auto& [name, count] : mStream.irregularities()) {
        if (count > 0) {
            printTo(stdout, "  in the stream itself: {} {}\n", count, name);
        }
    }
    if (mStream.isFormatDoubtful()) {
        printTo(stdout, "  {}\n", mStream.formatDoubt());
    }
}

const char* ReplayReport::clockName(const Figures& figures) {
    return figures.isVirtual ? "virtual" : "real";
}

std::string ReplayReport::busyText(const Figures& figures) {
    if (figures.underrunCount == 0 || figures.isVirtual) {
        return {};
    }
    return fmt::format(
        "the machine was too busy: the mix came too late for the output {} {}, by up to {:.0f} ms. "
        "These figures are the machine's; replay again when it has less to do",
        figures.underrunCount, figures.underrunCount == 1 ? "time" : "times",
        ms(figures.longestUnderrunNs));
}

void ReplayReport::printSummary() const {
    printTo(stdout, "\n{}: {} bytes, {} bursts in {:.3f} s of {} time\n",
            terminalText(mFigures.path), mFigures.byteCount, mTrack.decisions().size(),
            sec(mFigures.elapsedNs), clockName(mFigures));
    printTo(stdout,
            "  decisions: {} none, {} re-anchor, {} silence, {} drop; {} bursts in free run\n",
            mTrack.count(Kind::NONE), mTrack.count(Kind::ANCHOR), mTrack.count(Kind::SILENCE),
            mTrack.count(Kind::DROP), mTrack.count(Kind::FREE_RUN));
    printTo(stdout, "  silence inserted: {:.3f} s; audio dropped: {:.3f} s\n",
            sec(bytesToNs(mTrack.silenceByteCount())), sec(bytesToNs(mTrack.droppedByteCount())));
    if (mTrack.missedByteCount() > 0) {
        printTo(stdout, "  found no room in time and is lost: {:.3f} s\n",
                sec(bytesToNs(mTrack.missedByteCount())));
    }
    printTo(stdout, "  played: {} frames ({:.3f} s), {} short blocks, {} underruns\n",
            mFigures.playedFrameCount,
            static_cast<double>(mFigures.playedFrameCount) / mFormat.rateHz,
            mFigures.shortBlockCount, mFigures.underrunCount);
    printStream();
    const std::string busy = busyText(mFigures);
    if (!busy.empty()) {
        printTo(stdout, "  {}\n", busy);
    }
}

std::vector<std::pair<const char*, int64_t>> ReplayReport::counts() const {
    const auto count = [this](Kind kind) { return static_cast<int64_t>(mTrack.count(kind)); };
    return {{"bytes", static_cast<int64_t>(mFigures.byteCount)},
            {"bursts", static_cast<int64_t>(mTrack.decisions().size())},
            {"elapsed_ns", mFigures.elapsedNs},
            {"none", count(Kind::NONE)},
            {"re_anchor", count(Kind::ANCHOR)},
            {"silence", count(Kind::SILENCE)},
            {"drop", count(Kind::DROP)},
            {"free_run", count(Kind::FREE_RUN)},
            {"silence_ns", bytesToNs(mTrack.silenceByteCount())},
            {"dropped_ns", bytesToNs(mTrack.droppedByteCount())},
            {"missed_ns", bytesToNs(mTrack.missedByteCount())},
            {"played_frames", mFigures.playedFrameCount},
            {"short_blocks", mFigures.shortBlockCount},
            {"underruns", mFigures.underrunCount},
            {"longest_underrun_ns", mFigures.longestUnderrunNs}};
}

void ReplayReport::printJson(bool isSummaryOnly) const {
    Json document = {{"file", mFigures.path}};
    document["bounds_ms"] = {{"audio_lead_threshold", mBounds.audioThresholdMs},
                             {"audio_lead_upper", mBounds.audioUpperMs},
                             {"video_lead_threshold", mBounds.videoThresholdMs},
                             {"video_lead_upper", mBounds.videoUpperMs}};
    document["events"] = Json::array();
    for (const SyncEvent& event : mTrack.events()) {
        document["events"].push_back({{"time_ns", event.timeNs}, {"event", event.text}});
    }
    document["excursions"] = Json::array();
    for (const Excursion& excursion : mTrack.excursions(mBounds)) {
        Json row = {{"begin_ns", excursion.beginNs},
                    {"end_ns", excursion.endNs},
                    {"worst_lead_ns", excursion.worstLeadNs},
                    {"is_over", excursion.isOver}};
        if (excursion.eventIndex >= 0) {
            row["event"] = excursion.eventIndex;
        }
        document["excursions"].push_back(row);
    }
    document["heard"] = jsonOf(mHeard);
    document["stream"] = jsonOf(mStream);
    Json summary;
    for (const auto& [name, count] : counts()) {
        summary[name] = count;
    }
    summary["clock"] = clockName(mFigures);
    document["summary"] = summary;
    if (!isSummaryOnly) {
        document["decisions"] = Json::array();
        for (const SyncDecision& decision : mTrack.decisions()) {
            document["decisions"].push_back(jsonOf(decision));
        }
    }
    // File names may hold any bytes.
    printTo(stdout, "{}\n", document.dump(1, ' ', false, Json::error_handler_t::replace));
}

void ReplayReport::printCsv() const {
    printTo(stdout,
            "time_ns,burst,timestamp_ns,clock_ns,lead_ns,decision,correction_ms,heard_lead_ns\n");
    for (const SyncDecision& decision : mTrack.decisions()) {
        printTo(stdout, "{},{},{},", decision.timeNs, decision.burstIndex, decision.ptsNs);
        if (decision.hasClock) {
            printTo(stdout, "{},{}", decision.clockNs, decision.leadNs());
        } else {
            printTo(stdout, ",");
        }
        printTo(stdout, ",{},{},", decision.name(), decision.correctionMs);
        if (decision.isHeard) {
            printTo(stdout, "{}", decision.heardLeadNs);
        }
        printTo(stdout, "\n");
    }
}

// With rows, counts would be lines of another shape; whoever wants them asks for them.
void ReplayReport::printCsvSummary() const {
    printTo(stdout, "name,value\n");
    for (const auto& [name, count] : counts()) {
        printTo(stdout, "{},{}\n", name, count);
    }
    const auto printBeyond = [](const char* name, const HeardLeads::Beyond& beyond) {
        printTo(stdout, "{}_early_ns,{}\n{}_late_ns,{}\n", name, nsOf(beyond.earlySec), name,
                nsOf(beyond.lateSec));
    };
    printTo(stdout, "heard_measured_ns,{}\n", nsOf(mHeard.measuredSec()));
    printTo(stdout, "heard_lowest_lead_ns,{}\n", nsOfMs(mHeard.leads().lowest()));
    printTo(stdout, "heard_highest_lead_ns,{}\n", nsOfMs(mHeard.leads().highest()));
    printBeyond("heard_beyond_detectability", mHeard.beyondDetectability());
    printBeyond("heard_beyond_acceptability", mHeard.beyondAcceptability());
    if (mHeard.beyondLimit()) {
        printBeyond("heard_beyond_max_heard", *mHeard.beyondLimit());
    }
}

}  // namespace android
