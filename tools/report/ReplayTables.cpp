#include "tools/report/ReplayTables.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "tools/course/DecisionRun.h"

namespace android {

namespace {

std::string secText(int64_t ns) {
    return fmt::format("{:.3f}", static_cast<double>(ns) / 1e9);
}

std::string msText(int64_t lowNs, int64_t highNs) {
    const std::string low = fmt::format("{:+.1f}", static_cast<double>(lowNs) / 1e6);
    return lowNs == highNs ? low
                           : low + fmt::format(" to {:+.1f}", static_cast<double>(highNs) / 1e6);
}

std::vector<std::string> rowOf(const DecisionRun& run) {
    const std::string begin = std::to_string(run.first.burstIndex);
    return {secText(run.first.timeNs),
            run.count() > 1 ? fmt::format("{} to {}", begin, run.lastBurst) : begin,
            run.first.name(),
            run.first.hasClock ? msText(run.lowestLeadNs, run.highestLeadNs) : "",
            run.isHeard ? msText(run.lowestHeardNs, run.highestHeardNs) : "",
            run.first.correctionMs > 0 ? std::to_string(run.first.correctionMs) : ""};
}

/** Such as "Decisions, 12 rows" or "Decisions, the first 400 of 7000 rows; --csv prints all". */
std::string captionOf(const std::string& name, size_t shown, size_t total, const char* source) {
    return shown == total
               ? fmt::format("{}, {}{}", name, total, total == 1 ? " row" : " rows")
               : fmt::format("{}, the first {} of {} rows; {}", name, shown, total, source);
}

}  // namespace

void ReplayTables::addDecisions(const SyncTrack& track) {
    std::vector<std::vector<std::string>> rows;
    size_t total = 0;
    const auto add = [&](const std::vector<std::string>& row) {
        ++total;
        if (rows.size() < kMostRows) {
            rows.push_back(row);
        }
    };
    const std::vector<SyncEvent>& events = track.events();
    size_t event = 0;
    const auto addEventsUntil = [&](int64_t timeNs) {
        for (; event < events.size() && events[event].timeNs <= timeNs; ++event) {
            add({secText(events[event].timeNs), "", "clock: " + events[event].text, "", "", ""});
        }
    };
    DecisionRun::forEach(track.decisions(), [&](const DecisionRun& run) {
        addEventsUntil(run.first.timeNs);
        add(rowOf(run));
    });
    addEventsUntil(INT64_MAX);
    mPage.addTable(
        captionOf("Decisions and clock events", rows.size(), total,
                  "replay --csv prints every decision"),
        {"time s", "bursts", "decision", "audio lead ms", "heard lead ms", "correction ms"}, rows);
}

void ReplayTables::addFaults(const StreamFaults& faults) {
    std::vector<std::vector<std::string>> rows;
    for (const StreamFaults::Fault& fault : faults.first()) {
        rows.push_back({fmt::format("{:.3f}", fault.timeSec), std::to_string(fault.burstIndex),
                        std::to_string(fault.offset), fault.what});
    }
    const auto total = static_cast<size_t>(faults.count());
    if (total > 0) {
        mPage.addTable(captionOf("Faults of the stream itself", rows.size(), total,
                                 "hwsync inspect lists all"),
                       {"time s", "burst", "offset in bytes", "fault"}, rows);
    }
}

}  // namespace android
