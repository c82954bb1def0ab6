#include "tools/report/ReplayPage.h"

#include <algorithm>
#include <filesystem>

#include "tools/chart/AudioStrips.h"
#include "tools/chart/BlockStrips.h"
#include "tools/chart/GainStrip.h"
#include "tools/chart/LeadStrips.h"
#include "tools/chart/StateStrip.h"
#include "tools/text/MarkupText.h"

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
    return course.valueCount() == 0 ? "none"
                                    : markupNumber("%+.1f", course.lowest()) +
                                          markupNumber(" to %+.1f ms", course.highest());
}

std::string msText(const Course& course) {
    return markupNumber("%.3f", course.mean()) + markupNumber(" and %.3f ms", course.highest());
}

/** Until the last block has been played. */
double endSecOf(const ReplayRecorder& recorder, const ReplayReport::Figures& figures) {
    return std::max(sec(figures.elapsedNs),
                    recorder.blocks().frames().columns().empty()
                        ? 0.0
                        : recorder.blocks().frames().columns().back().endSec);
}

}  // namespace

ReplayPage::ReplayPage(const SyncTrack& track, const SyncBounds& bounds, const PcmFormat& format,
                       const ReplayReport::Figures& figures, const ReplayRecorder& recorder)
    : mTrack(track),
      mRecorder(recorder),
      mAxis(endSecOf(recorder, figures), kColumns),
      mPage(mAxis, "Replay of " + nameOf(figures.path), "time since the first write") {
    addFigures(format, figures);
    addLead(bounds);
    mPage.addSection("The mix", "what the output took",
                     AudioStrips(mAxis, recorder.mix(), "of the mix").html() +
                         BlockStrips(mAxis, recorder.blocks()).html());
    mPage.addSection(nameOf(figures.path),
                     figures.path + ": tunnel stream, as it was written" +
                         markupNumber("; played at gain %g", recorder.tunnelGain()),
                     AudioStrips(mAxis, recorder.tunnel(), "of the payload").html() + states());
    addBesides();
}

void ReplayPage::addFigures(const PcmFormat& format, const ReplayReport::Figures& figures) {
    using Kind = SyncDecision::Kind;
    const BlockTrack& blocks = mRecorder.blocks();
    const auto seconds = [&](int64_t byteCount) {
        return markupNumber("%.3f s", sec(format.durationNs(static_cast<uint64_t>(byteCount))));
    };
    Course parserLeads;
    for (const SyncDecision& decision : mTrack.decisions()) {
        if (decision.hasClock) {
            parserLeads.add(0.0, static_cast<double>(decision.leadNs()) / 1e6);
        }
    }
    mPage.addFigures("Figures of the replay",
                     {{"rate", std::to_string(format.rateHz) + " Hz"},
                      {"length", markupNumber("%.3f s", sec(figures.elapsedNs))},
                      {"bursts", std::to_string(mTrack.decisions().size())},
                      {"lead at the parser", rangeText(parserLeads)},
                      {"lead at the output", rangeText(mRecorder.outputLeads())},
                      {"silences", std::to_string(mTrack.count(Kind::SILENCE))},
                      {"drops", std::to_string(mTrack.count(Kind::DROP))},
                      {"re-anchors", std::to_string(mTrack.count(Kind::ANCHOR))},
                      {"silence inserted", seconds(mTrack.silenceByteCount())},
                      {"audio dropped", seconds(mTrack.droppedByteCount())},
                      {"blocks", std::to_string(blocks.frames().valueCount())},
                      {"short blocks", std::to_string(blocks.shortBlockCount())},
                      {"underruns", std::to_string(figures.underrunCount)},
                      {"cycle, mean and longest", msText(blocks.cycles())},
                      {"callback, mean and longest", msText(blocks.callbacks())},
                      {"mixing, mean and longest", msText(blocks.mixing())}});
}

void ReplayPage::addLead(const SyncBounds& bounds) {
    mPage.addSection(
        "Audio lead",
        "How far sound is ahead of the clock: where the policy decides, as it parses a "
        "burst's header, and where the burst's first frame leaves in a block.",
        LeadStrips(mAxis, mTrack, bounds, mRecorder.outputLeads()).html());
}

std::string ReplayPage::states() const {
    using Kind = SyncDecision::Kind;
    using State = StateStrip::State;
    StateStrip strip(mAxis);
    const auto& decisions = mTrack.decisions();
    if (!decisions.empty()) {
        strip.add(State::PLAYING, sec(decisions.front().timeNs), mAxis.endSec());
    }
    for (size_t begin = 0, end = 0; begin < decisions.size(); begin = end) {
        const Kind kind = decisions[begin].kind;
        for (end = begin + 1; end < decisions.size() && decisions[end].kind == kind;) {
            ++end;
        }
        const double fromSec = sec(decisions[begin].timeNs);
        const double toSec = end < decisions.size() ? sec(decisions[end].timeNs) : mAxis.endSec();
        // Drops are over as soon as they are written: as wide as can be seen.
        const double seenSec = std::max(toSec, fromSec + mAxis.columnSec());
        if (kind == Kind::FREE_RUN) {
            strip.add(State::FREE_RUN, fromSec, toSec);
        } else if (kind == Kind::SILENCE) {
            strip.add(State::FILLING, fromSec, seenSec);
        } else if (kind == Kind::DROP) {
            strip.add(State::DROPPING, fromSec, seenSec);
        }
    }
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
