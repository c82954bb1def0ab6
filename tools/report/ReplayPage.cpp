#include "tools/report/ReplayPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "tools/chart/AudioStrips.h"
#include "tools/chart/BlockStrips.h"
#include "tools/chart/GainStrip.h"
#include "tools/chart/LeadStrips.h"
#include "tools/chart/StateStrip.h"
#include "tools/report/ReplayTables.h"

namespace android {

namespace {

constexpr int kColumns = 1000;

std::string nameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

double sec(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

std::string rangeText(const Course& course) {
    return course.valueCount() == 0
               ? "none"
               : fmt::format("{:+.1f} to {:+.1f} ms", course.lowest(), course.highest());
}

std::string msText(const Course& course) {
    return fmt::format("{:.3f} and {:.3f} ms", course.mean(), course.highest());
}

/** Until the last block has been played. */
double endSecOf(const ReplayRecorder& recorder, const ReplayReport::Figures& figures) {
    return std::max(sec(figures.elapsedNs),
                    recorder.blocks().frames().columns().empty()
                        ? 0.0
                        : recorder.blocks().frames().columns().back().endSec);
}

}  // namespace

ReplayPage::ReplayPage(const Subject& subject)
    : mSubject(subject),
      mTrack(subject.track),
      mRecorder(subject.recorder),
      mAxis(endSecOf(subject.recorder, subject.figures), kColumns),
      mPage(mAxis, "Replay of " + nameOf(subject.figures.path), "time since the first write") {
    addNotices();
    addFigures();
    addHeard();
    addLead();
    ReplayTables(mPage).addDecisions(mTrack);
    ReplayTables(mPage).addFaults(subject.faults);
    mPage.addSection("The mix", "what the output took",
                     AudioStrips(mAxis, mRecorder.mix(), "of the mix").html() +
                         BlockStrips(mAxis, mRecorder.blocks()).html());
    addStream();
    addBesides();
    mPage.addFigures("How this was made", subject.origin);
}

void ReplayPage::addNotices() {
    const std::string busy = ReplayReport::busyText(mSubject.figures);
    if (!busy.empty()) {
        mPage.addNotice(busy);
    }
    if (mSubject.tally.isFormatDoubtful()) {
        mPage.addNotice(mSubject.tally.formatDoubt());
    }
}

void ReplayPage::addFigures() {
    using Kind = SyncDecision::Kind;
    const PcmFormat& format = mSubject.format;
    const BlockTrack& blocks = mRecorder.blocks();
    const auto seconds = [&](int64_t byteCount) {
        return fmt::format("{:.3f} s", sec(format.durationNs(static_cast<uint64_t>(byteCount))));
    };
    Course parserLeads;
    for (const SyncDecision& decision : mTrack.decisions()) {
        if (decision.hasClock) {
            parserLeads.add(0.0, static_cast<double>(decision.leadNs()) / 1e6);
        }
    }
    mPage.addFigures("Figures of the replay",
                     {{"rate", fmt::format("{} Hz", format.rateHz)},
                      {"length", fmt::format("{:.3f} s", sec(mSubject.figures.elapsedNs))},
                      {"time", ReplayReport::clockName(mSubject.figures)},
                      {"bursts", std::to_string(mTrack.decisions().size())},
                      {"lead at the parser", rangeText(parserLeads)},
                      {"silences", std::to_string(mTrack.count(Kind::SILENCE))},
                      {"drops", std::to_string(mTrack.count(Kind::DROP))},
                      {"re-anchors", std::to_string(mTrack.count(Kind::ANCHOR))},
                      {"silence inserted", seconds(mTrack.silenceByteCount())},
                      {"audio dropped", seconds(mTrack.droppedByteCount())},
                      {"found no room", seconds(mTrack.missedByteCount())},
                      {"faults of the stream", std::to_string(mSubject.faults.count())},
                      {"blocks", std::to_string(blocks.frames().valueCount())},
                      {"short blocks", std::to_string(blocks.shortBlockCount())},
                      {"underruns", std::to_string(mSubject.figures.underrunCount)},
                      {"cycle, mean and longest", msText(blocks.cycles())},
                      {"callback, mean and longest", msText(blocks.callbacks())},
                      {"mixing, mean and longest", msText(blocks.mixing())}});
}

void ReplayPage::addHeard() {
    const HeardLeads& heard = mRecorder.heard();
    ReportPage::Figures figures = {{"lead at the output", rangeText(heard.leads())},
                                   {"mean", fmt::format("{:+.1f} ms", heard.meanMs())},
                                   {"measured for", fmt::format("{:.3f} s", heard.measuredSec())}};
    if (heard.worst()) {
        figures.emplace_back("farthest from 0",
                             fmt::format("{:+.1f} ms at {:.3f} s, burst {}", heard.worst()->leadMs,
                                         heard.worst()->timeSec, heard.worst()->index));
    }
    const auto add = [&figures](const std::string& name, const HeardLeads::Beyond& beyond) {
        figures.emplace_back(
            fmt::format("{}, {:+g} and {:+g} ms", name, beyond.range.earlyMs, beyond.range.lateMs),
            fmt::format("{:.3f} s early, {:.3f} s late", beyond.earlySec, beyond.lateSec));
    };
    add("beyond what viewers notice", heard.beyondDetectability());
    add("beyond what they accept", heard.beyondAcceptability());
    if (heard.beyondLimit()) {
        add("beyond --max-heard", *heard.beyondLimit());
    }
    mPage.addFigures("What is heard", figures);
}

void ReplayPage::addLead() {
    mPage.addSection(
        "Audio lead",
        "How far sound is ahead of the clock: where the policy decides, as it parses a "
        "burst's header, and where the burst's first frame leaves in a block.",
        LeadStrips(mAxis, mTrack, mSubject.bounds, mRecorder.heard()).html());
}

void ReplayPage::addStream() {
    mPage.addSection(
        nameOf(mSubject.figures.path),
        mSubject.figures.path + ": tunnel stream, as it was written" +
            fmt::format("; played at gain {:g}", mRecorder.tunnelGain()),
        AudioStrips(mAxis, mRecorder.tunnel(), "of the payload").html() + states() + faultMarks());
}

std::string ReplayPage::states() const {
    using Kind = SyncDecision::Kind;
    // Pieces of a kind that nobody could see apart are one.
    struct Lane {
        Kind kind;
        StateStrip::State state;
        double fromSec = -1.0;  // below 0: there is no piece yet
        double toSec = 0.0;
        int64_t count = 0;
    };
    Lane lanes[] = {{.kind = Kind::FREE_RUN, .state = StateStrip::State::FREE_RUN},
                    {.kind = Kind::SILENCE, .state = StateStrip::State::FILLING},
                    {.kind = Kind::DROP, .state = StateStrip::State::DROPPING}};
    StateStrip strip(mAxis);
    const DecisionLog& decisions = mTrack.decisions();
    if (!decisions.empty()) {
        strip.add(StateStrip::State::PLAYING, sec(decisions[0].timeNs), mAxis.endSec());
    }
    const auto end = [&strip](const Lane& lane) {
        if (lane.fromSec >= 0.0) {
            strip.add(lane.state, lane.fromSec, lane.toSec,
                      lane.count > 1 ? fmt::format(", {} bursts", lane.count) : "");
        }
    };
    const auto take = [&](Lane& lane, double fromSec, double toSec) {
        if (lane.fromSec < 0.0 || fromSec > lane.toSec + mAxis.columnSec()) {
            end(lane);
            lane.fromSec = fromSec;
            lane.count = 0;
        }
        // Drops are over as soon as they are written: as wide as can be seen.
        lane.toSec = std::max(toSec, fromSec + mAxis.columnSec());
        ++lane.count;
    };
    for (size_t i = 0; i < decisions.size(); ++i) {
        const SyncDecision decision = decisions[i];
        for (Lane& lane : lanes) {
            if (lane.kind == decision.kind) {
                take(lane, sec(decision.timeNs),
                     i + 1 < decisions.size() ? sec(decisions[i + 1].timeNs) : mAxis.endSec());
            }
        }
    }
    for (const Lane& lane : lanes) {
        end(lane);
    }
    return strip.html();
}

std::string ReplayPage::faultMarks() const {
    const StreamFaults& faults = mSubject.faults;
    if (faults.count() == 0) {
        return {};
    }
    Strip strip(mAxis, {.kind = "faults",
                        .title = "Faults of the stream itself, when they were written",
                        .heightPx = 18,
                        .scale = {.low = 0.0, .high = 1.0}});
    strip.marks("fault", faults.moments(), [&faults](const Moments::Column& column) {
        std::string tip =
            fmt::format("{} {}{}, burst {:.0f}", column.count,
                        column.count == 1 ? "fault" : "faults", Strip::when(column), column.low);
        if (column.high > column.low) {
            tip += fmt::format(" to {:.0f}", column.high);
        }
        for (const StreamFaults::Fault& fault : faults.first()) {
            if (column.count == 1 && fault.timeSec == column.firstSec) {
                tip += fmt::format(", offset {}: {}", fault.offset, fault.what);
            }
        }
        return Strip::Note{.value = 0.5, .tip = tip};
    });
    return strip.html();
}

void ReplayPage::addBesides() {
    for (const ReplayRecorder::Beside& beside : mRecorder.besides()) {
        const double endSec =
            static_cast<double>(beside.track->audio().nextFrame()) / beside.rateHz;
        StateStrip states(mAxis);
        states.add(StateStrip::State::SILENT, 0.0, beside.startSec);
        states.add(StateStrip::State::PLAYING, beside.startSec, endSec);
        states.add(StateStrip::State::PADDED, endSec, mAxis.endSec());
        mPage.addSection(
            nameOf(beside.path), beside.path + ": plain stream beside it",
            AudioStrips(mAxis, beside.track->audio(), "as handed over, before its gain").html() +
                GainStrip(mAxis, beside.track->gains(), beside.rampSec).html() + states.html());
    }
}

}  // namespace android
