#include "tools/chart/LeadStrips.h"

#include <algorithm>
#include <cmath>

#include "tools/text/MarkupText.h"

namespace android {

namespace {

using Kind = SyncDecision::Kind;

// ITU-R BT.1359: sound early is above 0.
constexpr double kDetectEarlyMs = 45;
constexpr double kDetectLateMs = -125;
constexpr double kAcceptEarlyMs = 90;
constexpr double kAcceptLateMs = -185;

constexpr size_t kMostMarks = 1000;
constexpr size_t kMostNames = 24;

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

/** Both strips have one, so that they can be compared. */
Strip::Scale scaleOf(const SyncTrack& track, const SyncBounds& bounds, const Course& outputLeads) {
    // A lead of hours, from a damaged timestamp, and bounds that nothing reaches must not flatten
    // everything else.
    constexpr double kMostMs = 5000;
    const Course leads = leadsOf(track);
    const double low = std::min({kAcceptLateMs, -static_cast<double>(bounds.videoThresholdMs),
                                 leads.lowest(), outputLeads.lowest()});
    const double high = std::max({kAcceptEarlyMs, static_cast<double>(bounds.audioThresholdMs),
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
                strip.tick(ms,
                           markupNumber(ms == 0 ? "%.0f" : "%+.0f", std::abs(ms) > 0 ? ms : 0.0));
            }
        }
    }
}

const char* styleOf(Kind kind) {
    return kind == Kind::SILENCE ? "silence" : kind == Kind::DROP ? "drop" : "anchor";
}

}  // namespace

LeadStrips::LeadStrips(const TimeAxis& axis, const SyncTrack& track, const SyncBounds& bounds,
                       const Course& outputLeads)
    : mParser(axis,
              lookOf("parserlead",
                     "Audio lead at the parser: timestamp minus clock (ms, squeezed far from 0)",
                     scaleOf(track, bounds, outputLeads))),
      mOutput(axis, lookOf("outputlead",
                           "Audio lead at the output, when it is heard (ms, squeezed far from 0)",
                           scaleOf(track, bounds, outputLeads))) {
    drawBounds(bounds);
    drawDetectability();
    const Strip::Scale scale = scaleOf(track, bounds, outputLeads);
    addTicks(mParser, scale);
    addTicks(mOutput, scale);
    drawEvents(track);
    mParser.ranges("lead", Strip::rangesOf(axis, leadsOf(track)));
    mOutput.ranges("lead", Strip::rangesOf(axis, outputLeads));
    drawCorrections(track);
}

void LeadStrips::drawBounds(const SyncBounds& bounds) {
    const auto early = static_cast<double>(bounds.audioThresholdMs);
    const auto late = -static_cast<double>(bounds.videoThresholdMs);
    const auto earliest = static_cast<double>(bounds.audioUpperMs);
    const auto latest = -static_cast<double>(bounds.videoUpperMs);
    mParser.band("fill", early, earliest, "early: silence is inserted");
    mParser.band("good", late, early, "tolerated");
    mParser.band("poor", latest, late, "late: audio is dropped");
    for (const double bound : {latest, late, early, earliest}) {
        mParser.bound(bound);
    }
}

void LeadStrips::drawDetectability() {
    constexpr double kBeyond = 1e9;
    mOutput.band("poor", kAcceptEarlyMs, kBeyond, "early: viewers object");
    mOutput.band("maybe", kDetectEarlyMs, kAcceptEarlyMs, "noticed, accepted");
    mOutput.band("good", kDetectLateMs, kDetectEarlyMs, "not noticed");
    mOutput.band("maybe", kAcceptLateMs, kDetectLateMs, "noticed, accepted");
    mOutput.band("poor", -kBeyond, kAcceptLateMs, "late: viewers object");
    for (const double bound : {kAcceptLateMs, kDetectLateMs, kDetectEarlyMs, kAcceptEarlyMs}) {
        mOutput.bound(bound);
    }
}

void LeadStrips::drawEvents(const SyncTrack& track) {
    const auto& events = track.events();
    for (size_t i = 0; i < std::min(events.size(), kMostMarks); ++i) {
        const double timeSec = static_cast<double>(events[i].timeNs) / 1e9;
        mParser.event(timeSec, events[i].text);
        mOutput.event(timeSec, events[i].text);
        if (i < kMostNames) {
            mEventNames += std::string(i == 0 ? "<p class=\"key\"><span>clock: </span>" : "") +
                           "<span>" + markupNumber("%.3f s ", timeSec) +
                           markupText(events[i].text) + "</span> ";
        }
    }
    mEventNames += events.empty() ? "" : "</p>\n";
}

void LeadStrips::drawCorrections(const SyncTrack& track) {
    size_t markCount = 0;
    for (const SyncDecision& decision : track.decisions()) {
        if (decision.kind == Kind::NONE || decision.kind == Kind::FREE_RUN ||
            ++markCount > kMostMarks) {
            continue;
        }
        const double timeSec = static_cast<double>(decision.timeNs) / 1e9;
        const double leadMs = static_cast<double>(decision.leadNs()) / 1e6;
        std::string tip = decision.name() + markupNumber(" at %.3f s", timeSec);
        if (decision.hasClock) {
            tip += markupNumber(", audio lead %+.1f ms", leadMs);
        }
        if (decision.correctionMs > 0) {
            tip += ", " + std::to_string(decision.correctionMs) + " ms";
        }
        // A start has no lead: the clock is where the timestamp is.
        mParser.mark(styleOf(decision.kind),
                     {.timeSec = timeSec, .value = decision.hasClock ? leadMs : 0.0}, tip);
    }
}

std::string LeadStrips::html() const {
    return mParser.html() +
           "<p class=\"key\"><span><i class=\"mark silence\"></i>silence inserted</span> "
           "<span><i class=\"mark drop\"></i>audio dropped</span> "
           "<span><i class=\"mark anchor\"></i>clock re-anchored</span> "
           "<span><i class=\"swatch event\"></i>clock event</span> "
           "<span>dashed: the policy's bounds</span></p>\n" +
           mEventNames + mOutput.html() +
           "<p class=\"key\"><span><i class=\"swatch good\"></i>not noticed, -125 to +45 ms</span> "
           "<span><i class=\"swatch maybe\"></i>noticed and accepted, -185 to +90 ms</span> "
           "<span><i class=\"swatch poor\"></i>viewers object</span> "
           "<span>ITU-R BT.1359, detectability and acceptability</span></p>\n";
}

}  // namespace android
