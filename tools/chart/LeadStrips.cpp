#include "tools/chart/LeadStrips.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace android {

namespace {

using Kind = SyncDecision::Kind;

Course leadsOf(const SyncTrack& track) {
    Course leads;
    for (const SyncDecision& decision : track.decisions()) {
        const double timeSec = static_cast<double>(decision.timeNs) / 1e9;
        if (decision.hasClock) {
            leads.add(timeSec, static_cast<double>(decision.leadNs()) / 1e6);
        } else {
            leads.interrupt(timeSec);
        }
    }
    return leads;
}

Course burstsOf(const SyncTrack& track) {
    Course bursts;
    for (const SyncDecision& decision : track.decisions()) {
        bursts.add(static_cast<double>(decision.timeNs) / 1e9,
                   static_cast<double>(decision.burstIndex));
    }
    return bursts;
}

/** Both strips have one, so that they can be compared. */
Strip::Scale scaleOf(const SyncTrack& track, const SyncBounds& bounds, const Course& outputLeads) {
    // A lead of hours, from a damaged timestamp, and bounds that nothing reaches must not flatten
    // everything else.
    constexpr double kMostMs = 5000;
    const Course leads = leadsOf(track);
    const double low =
        std::min({kAcceptability.lateMs, -static_cast<double>(bounds.videoThresholdMs),
                  leads.lowest(), outputLeads.lowest()});
    const double high =
        std::max({kAcceptability.earlyMs, static_cast<double>(bounds.audioThresholdMs),
                  leads.highest(), outputLeads.highest()});
    const double heldLow = std::max(low, -kMostMs);
    const double heldHigh = std::min(high, kMostMs);
    const double margin = 0.1 * (heldHigh - heldLow);
    return {
        .low = heldLow - margin, .high = heldHigh + margin, .kind = Strip::Scale::Kind::SQUEEZED};
}

Strip::Look lookOf(const char* kind, const std::string& title, const Strip::Scale& scale) {
    return {.kind = kind, .title = title, .heightPx = 220, .scale = scale};
}

/** The round numbers that have room, those that matter first. */
void addTicks(Strip& strip, const Strip::Scale& scale) {
    constexpr double kLeastShare = 0.075;
    std::vector<double> shares;
    for (const double size : {0.0, 100.0, 1000.0, 300.0, 50.0, 200.0, 500.0, 2000.0, 5000.0}) {
        for (const double ms : {size, -size}) {
            const double share = scale.share(ms);
            const bool hasRoom = std::all_of(shares.begin(), shares.end(), [&](double other) {
                return std::abs(other - share) >= kLeastShare;
            });
            if (ms > scale.low && ms < scale.high && hasRoom) {
                shares.push_back(share);
                strip.tick(ms, ms == 0 ? "0" : fmt::format("{:+.0f}", ms));
            }
        }
    }
}

const char* styleOf(Kind kind) {
    return kind == Kind::SILENCE ? "silence" : kind == Kind::DROP ? "drop" : "anchor";
}

}  // namespace

LeadStrips::LeadStrips(const TimeAxis& axis, const SyncTrack& track, const SyncBounds& bounds,
                       const HeardLeads& heard)
    : mParser(axis,
              lookOf("parserlead",
                     "Audio lead at the parser: timestamp minus clock (ms, squeezed far from 0)",
                     scaleOf(track, bounds, heard.leads()))),
      mOutput(axis, lookOf("outputlead",
                           "Audio lead at the output, when it is heard (ms, squeezed far from 0)",
                           scaleOf(track, bounds, heard.leads()))) {
    drawBounds(bounds);
    drawDetectability();
    const Strip::Scale scale = scaleOf(track, bounds, heard.leads());
    addTicks(mParser, scale);
    addTicks(mOutput, scale);
    drawEvents(axis, track);
    drawLeads(axis, mParser, burstsOf(track), leadsOf(track));
    drawLeads(axis, mOutput, heard.bursts(), heard.leads());
    drawCorrections(track);
}

void LeadStrips::drawLeads(const TimeAxis& axis, Strip& strip, const Course& bursts,
                           const Course& leads) {
    const Strip::Ranges ranges = Strip::rangesOf(axis, leads);
    strip.ranges("lead", ranges);
    strip.reading("burst", "", 0, Strip::rangesOf(axis, bursts));
    strip.reading("audio lead", "ms", 1, ranges);
}

void LeadStrips::drawBounds(const SyncBounds& bounds) {
    const auto early = static_cast<double>(bounds.audioThresholdMs);
    const auto late = -static_cast<double>(bounds.videoThresholdMs);
    const auto earliest = static_cast<double>(bounds.audioUpperMs);
    const auto latest = -static_cast<double>(bounds.videoUpperMs);
    mParser.band("fill", early, earliest);
    mParser.band("good", late, early);
    mParser.band("poor", latest, late);
    for (const double bound : {latest, late, early, earliest}) {
        mParser.bound(bound);
    }
}

void LeadStrips::drawDetectability() {
    constexpr double kBeyond = 1e9;
    mOutput.band("poor", kAcceptability.earlyMs, kBeyond);
    mOutput.band("maybe", kDetectability.earlyMs, kAcceptability.earlyMs);
    mOutput.band("good", kDetectability.lateMs, kDetectability.earlyMs);
    mOutput.band("maybe", kAcceptability.lateMs, kDetectability.lateMs);
    mOutput.band("poor", -kBeyond, kAcceptability.lateMs);
    for (const double bound : {kAcceptability.lateMs, kDetectability.lateMs, kDetectability.earlyMs,
                               kAcceptability.earlyMs}) {
        mOutput.bound(bound);
    }
}

/** One line for each column of the axis. */
void LeadStrips::drawEvents(const TimeAxis& axis, const SyncTrack& track) {
    const auto& events = track.events();
    const auto secOf = [](const SyncEvent& event) {
        return static_cast<double>(event.timeNs) / 1e9;
    };
    for (size_t begin = 0, end = 0; begin < events.size(); begin = end) {
        const auto column = static_cast<int>(axis.x(secOf(events[begin])));
        while (end < events.size() && static_cast<int>(axis.x(secOf(events[end]))) == column) {
            ++end;
        }
        const std::string tip = end - begin == 1 ? events[begin].text
                                                 : fmt::format("{} clock events, the last: {}",
                                                               end - begin, events[end - 1].text);
        mParser.event(secOf(events[begin]), tip);
        mOutput.event(secOf(events[begin]), tip);
    }
}

void LeadStrips::drawCorrections(const SyncTrack& track) {
    for (const Kind kind : {Kind::ANCHOR, Kind::SILENCE, Kind::DROP}) {
        Moments moments;
        for (const SyncDecision& decision : track.decisions()) {
            // A start has no lead: the clock is where the timestamp is.
            if (decision.kind == kind) {
                moments.add(static_cast<double>(decision.timeNs) / 1e9,
                            decision.hasClock ? static_cast<double>(decision.leadNs()) / 1e6 : 0.0);
            }
        }
        mParser.marks(styleOf(kind), moments, [kind](const Moments::Column& column) {
            const std::string name = SyncDecision::nameOf(kind);
            const std::string words =
                column.count == 1 ? name : fmt::format("{} times {}", column.count, name);
            return Strip::Note{.value = column.worst(),
                               .tip = words + Strip::when(column) +
                                      fmt::format(", audio lead {:+.1f} ms", column.worst())};
        });
    }
}

std::string LeadStrips::html() const {
    return mParser.html() +
           "<p class=\"key\"><span><i class=\"swatch good\"></i>tolerated</span> "
           "<span><i class=\"swatch fill\"></i>early: silence is inserted</span> "
           "<span><i class=\"swatch poor\"></i>late: audio is dropped</span> "
           "<span><i class=\"mark silence\"></i>silence inserted</span> "
           "<span><i class=\"mark drop\"></i>audio dropped</span> "
           "<span><i class=\"mark anchor\"></i>clock re-anchored</span> "
           "<span><i class=\"swatch event\"></i>clock event</span> "
           "<span>dashed: the policy's bounds</span></p>\n" +
           mOutput.html() +
           "<p class=\"key\"><span><i class=\"swatch good\"></i>not noticed, -125 to +45 ms</span> "
           "<span><i class=\"swatch maybe\"></i>noticed and accepted, -185 to +90 ms</span> "
           "<span><i class=\"swatch poor\"></i>viewers object</span> "
           "<span>ITU-R BT.1359-1, detectability and acceptability</span></p>\n";
}

}  // namespace android
