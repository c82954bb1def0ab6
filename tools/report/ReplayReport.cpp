#include "tools/report/ReplayReport.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/process/ToolError.h"

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

/** Corrections are told one by one, everything else by runs. */
bool isCorrection(const SyncDecision& decision) {
    return decision.kind == Kind::SILENCE || decision.kind == Kind::DROP ||
           decision.kind == Kind::ANCHOR;
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
    if (decision.correctionMs > 0) {
        row["correction_ms"] = decision.correctionMs;
    }
    return row;
}

}  // namespace

void ReplayReport::print(Form form, bool isSummaryOnly) const {
    switch (form) {
        case Form::TEXT:
            if (!isSummaryOnly) {
                printDecisions();
            }
            printExcursions();
            printSummary();
            break;
        case Form::JSON:
            printJson(isSummaryOnly);
            break;
        case Form::CSV:
            printCsv();
            break;
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        throw ToolError("standard output: writing failed; make room or choose another place");
    }
}

void ReplayReport::printDecisions() const {
    printf("  time s        bursts  decision   audio lead ms         correction ms\n");
    for (size_t index = 0; index < mTrack.decisions().size();) {
        index = printRun(index);
    }
    printf("\n");
}

/** One row for `first` and those behind it that say the same; the index behind them. */
size_t ReplayReport::printRun(size_t first) const {
    const auto& decisions = mTrack.decisions();
    const SyncDecision& begin = decisions[first];
    size_t end = first + 1;
    int64_t lowNs = begin.leadNs();
    int64_t highNs = lowNs;
    while (end < decisions.size() && !isCorrection(begin) && decisions[end].kind == begin.kind &&
           decisions[end].hasClock == begin.hasClock) {
        lowNs = std::min(lowNs, decisions[end].leadNs());
        highNs = std::max(highNs, decisions[end].leadNs());
        ++end;
    }
    char bursts[48];
    snprintf(bursts, sizeof(bursts), end - first > 1 ? "%" PRIu64 "-%" PRIu64 : "%" PRIu64,
             begin.burstIndex, decisions[end - 1].burstIndex);
    printf("%8.3f  %12s  %-9s", sec(begin.timeNs), bursts, begin.name());
    char lead[48] = "";
    if (begin.hasClock) {
        snprintf(lead, sizeof(lead), end - first > 1 ? "%+.1f to %+.1f" : "%+.1f", ms(lowNs),
                 ms(highNs));
    }
    if (begin.correctionMs > 0) {
        printf("  %-20s  %" PRId64 "\n", lead, begin.correctionMs);
    } else {
        printf("  %s\n", lead);
    }
    return end;
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
            printf("    outside from %.3f s (worst %+.1f ms), ", sec(excursion.beginNs),
                   ms(excursion.worstLeadNs));
            if (!excursion.isOver) {
                printf("still so at %.3f s\n", sec(excursion.endNs));
                continue;
            }
            printf("inside again at %.3f s, %.1f ms later", sec(excursion.endNs),
                   ms(excursion.endNs - excursion.beginNs));
            if (eventIndex >= 0) {
                const SyncEvent& event = events[static_cast<size_t>(eventIndex)];
                printf(", %.1f ms after the event", ms(excursion.endNs - event.timeNs));
            }
            printf("\n");
        }
        return isAny;
    };
    printf("audio lead, tolerated from %+" PRId64 " to %+" PRId64 " ms:\n",
           -mBounds.videoThresholdMs, mBounds.audioThresholdMs);
    printf("  %8s\n", "start");
    printf("%s", printThoseOf(-1) ? "" : "    inside\n");
    for (size_t index = 0; index < events.size(); ++index) {
        printf("  %8.3f s  %s\n", sec(events[index].timeNs), events[index].text.c_str());
        printf("%s", printThoseOf(static_cast<int64_t>(index)) ? "" : "    stayed inside\n");
    }
}

void ReplayReport::printSummary() const {
    printf("\n%s: %" PRIu64 " bytes, %zu bursts in %.3f s\n", mFigures.path.c_str(),
           mFigures.byteCount, mTrack.decisions().size(), sec(mFigures.elapsedNs));
    printf("  decisions: %zu none, %zu re-anchor, %zu silence, %zu drop; %zu bursts in free run\n",
           mTrack.count(Kind::NONE), mTrack.count(Kind::ANCHOR), mTrack.count(Kind::SILENCE),
           mTrack.count(Kind::DROP), mTrack.count(Kind::FREE_RUN));
    printf("  silence inserted: %.3f s; audio dropped: %.3f s\n",
           sec(bytesToNs(mTrack.silenceByteCount())), sec(bytesToNs(mTrack.droppedByteCount())));
    if (mTrack.missedByteCount() > 0) {
        printf("  found no room in time and is lost: %.3f s\n",
               sec(bytesToNs(mTrack.missedByteCount())));
    }
    printf(
        "  played: %" PRId64 " frames (%.3f s), %" PRId64 " short blocks, %" PRId64 " underruns\n",
        mFigures.playedFrameCount, static_cast<double>(mFigures.playedFrameCount) / mFormat.rateHz,
        mFigures.shortBlockCount, mFigures.underrunCount);
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
    document["summary"] = {{"bytes", mFigures.byteCount},
                           {"bursts", mTrack.decisions().size()},
                           {"elapsed_ns", mFigures.elapsedNs},
                           {"none", mTrack.count(Kind::NONE)},
                           {"re_anchor", mTrack.count(Kind::ANCHOR)},
                           {"silence", mTrack.count(Kind::SILENCE)},
                           {"drop", mTrack.count(Kind::DROP)},
                           {"free_run", mTrack.count(Kind::FREE_RUN)},
                           {"silence_ns", bytesToNs(mTrack.silenceByteCount())},
                           {"dropped_ns", bytesToNs(mTrack.droppedByteCount())},
                           {"missed_ns", bytesToNs(mTrack.missedByteCount())},
                           {"played_frames", mFigures.playedFrameCount},
                           {"short_blocks", mFigures.shortBlockCount},
                           {"underruns", mFigures.underrunCount}};
    if (!isSummaryOnly) {
        document["decisions"] = Json::array();
        for (const SyncDecision& decision : mTrack.decisions()) {
            document["decisions"].push_back(jsonOf(decision));
        }
    }
    // File names may hold any bytes.
    printf("%s\n", document.dump(1, ' ', false, Json::error_handler_t::replace).c_str());
}

void ReplayReport::printCsv() const {
    printf("time_ns,burst,timestamp_ns,clock_ns,lead_ns,decision,correction_ms\n");
    for (const SyncDecision& decision : mTrack.decisions()) {
        printf("%" PRId64 ",%" PRIu64 ",%" PRIu64 ",", decision.timeNs, decision.burstIndex,
               decision.ptsNs);
        if (decision.hasClock) {
            printf("%" PRIu64 ",%" PRId64, decision.clockNs, decision.leadNs());
        } else {
            printf(",");
        }
        printf(",%s,%" PRId64 "\n", decision.name(), decision.correctionMs);
    }
}

}  // namespace android
