#include "tools/chart/LeadChart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/process/OutputFile.h"
#include "tools/process/ToolError.h"
#include "tools/text/MarkupText.h"

namespace android {

namespace {

using Frame = ChartFrame;
using Kind = SyncDecision::Kind;

constexpr const char* kStyle =
    "<style>"
    "text{font:13px sans-serif;fill:#333}.title{font-size:16px;font-weight:bold}"
    ".small{font-size:12px;fill:#666}.end{text-anchor:end}.mid{text-anchor:middle}"
    ".page{fill:#fff}.grid{stroke:#ddd;fill:none}.axis{stroke:#888;fill:none}"
    ".good{fill:#dff0df}.fill{fill:#e4ecf8}.drop{fill:#fae6e2}.run{fill:#888;opacity:.22}"
    ".lead{stroke:#222;stroke-width:1.6;fill:none;stroke-linejoin:round}"
    ".event{stroke:#a0690a;stroke-dasharray:5 3;fill:none}.eventname{fill:#85560a}"
    ".silence{fill:#2563c9}.dropped{fill:#c8351f}.anchor{fill:#7d3cb5}"
    ".mark{stroke:#fff;stroke-width:.8}"
    ".note{paint-order:stroke;stroke:#fff;stroke-opacity:.75;stroke-width:3px}"
    "@media (prefers-color-scheme:dark){"
    "text{fill:#ddd}.small{fill:#aaa}.page{fill:#15181d}.grid{stroke:#33383f}.axis{stroke:#888}"
    ".good{fill:#1d3324}.fill{fill:#1c2738}.drop{fill:#39211e}.lead{stroke:#eee}"
    ".event{stroke:#e0a63c}.eventname{fill:#e8b85c}"
    ".silence{fill:#6ea3ff}.dropped{fill:#ff7a63}.anchor{fill:#c58af0}.mark{stroke:#15181d}"
    ".note{stroke:#15181d}"
    "}</style>";

double secOf(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

double msOf(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

}  // namespace

LeadChart::LeadChart(const SyncTrack& track, const SyncBounds& bounds, const std::string& title)
    : mTrack(track), mBounds(bounds) {
    chooseFrame();
    add("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {:g} {:g}\" width=\"{:g}\" "
        "height=\"{:g}\">",
        Frame::kWidth, Frame::kHeight, Frame::kWidth, Frame::kHeight);
    mSvg += kStyle;
    add("<rect class=\"page\" width=\"{:g}\" height=\"{:g}\"/>", Frame::kWidth, Frame::kHeight);
    text(Frame::kLeft, 26, "title", title);
    drawBands();
    drawFreeRuns();
    drawAxes();
    drawEvents();
    drawLead();
    drawCorrections();
    drawReturns();
    drawLegend();
    mSvg += "</svg>\n";
}

void LeadChart::chooseFrame() {
    auto lowMs = -static_cast<double>(mBounds.videoThresholdMs);
    auto highMs = static_cast<double>(mBounds.audioThresholdMs);
    int64_t endNs = 1'000'000'000;
    for (const SyncDecision& decision : mTrack.decisions()) {
        endNs = std::max(endNs, decision.timeNs);
        if (decision.hasClock) {
            // A lead of hours, from a damaged timestamp, must not flatten everything else.
            lowMs = std::min(lowMs, std::max(msOf(decision.leadNs()),
                                             -1.2 * static_cast<double>(mBounds.videoUpperMs)));
            highMs = std::max(highMs, std::min(msOf(decision.leadNs()),
                                               1.2 * static_cast<double>(mBounds.audioUpperMs)));
        }
    }
    // A bound that no lead can reach does not widen the picture.
    constexpr double kMostMs = 1e7;
    const double marginMs = 0.12 * std::min(highMs - lowMs, kMostMs);
    mFrame.lowMs = std::max(lowMs, -kMostMs) - marginMs;
    mFrame.highMs = std::min(highMs, kMostMs) + marginMs;
    mFrame.endSec = secOf(endNs);
}

void LeadChart::drawBands() {
    const auto audioThresholdMs = static_cast<double>(mBounds.audioThresholdMs);
    const auto videoThresholdMs = static_cast<double>(mBounds.videoThresholdMs);
    drawBand("good", -videoThresholdMs, audioThresholdMs, "tolerated");
    drawBand("fill", audioThresholdMs, static_cast<double>(mBounds.audioUpperMs),
             "silence is inserted");
    drawBand("drop", -static_cast<double>(mBounds.videoUpperMs), -videoThresholdMs,
             "audio is dropped");
}

void LeadChart::drawBand(const char* style, double lowMs, double highMs, const char* label) {
    const double top = mFrame.y(highMs);
    const double height = mFrame.y(lowMs) - top;
    if (highMs <= lowMs || height <= 0) {
        return;
    }
    add("<rect class=\"{}\" x=\"{:g}\" y=\"{:.2f}\" width=\"{:g}\" height=\"{:.2f}\"/>", style,
        Frame::kLeft, top, Frame::kRight - Frame::kLeft, height);
    if (height > 18) {
        text(Frame::kRight - 8, top + 15, "small end", label);
    }
}

void LeadChart::drawAxes() {
    const double stepMs = Frame::stepOf(mFrame.highMs - mFrame.lowMs, 9);
    for (double ms = std::ceil(mFrame.lowMs / stepMs) * stepMs; ms <= mFrame.highMs; ms += stepMs) {
        add("<path class=\"{}\" d=\"M{:g} {:.2f}H{:g}\"/>",
            std::abs(ms) < stepMs / 2 ? "axis" : "grid", Frame::kLeft, mFrame.y(ms), Frame::kRight);
        text(Frame::kLeft - 8, mFrame.y(ms) + 4, "small end", fmt::format("{:.6g}", ms));
    }
    const double stepSec = Frame::stepOf(mFrame.endSec, 12);
    for (double sec = 0; sec <= mFrame.endSec * (1 + 1e-9); sec += stepSec) {
        add("<path class=\"axis\" d=\"M{:.2f} {:g}v5\"/>", mFrame.x(sec), Frame::kBottom);
        text(mFrame.x(sec), Frame::kBottom + 20, "small mid", fmt::format("{:.6g}", sec));
    }
    add("<path class=\"axis\" d=\"M{:g} {:g}V{:g}H{:g}\"/>", Frame::kLeft, Frame::kTop,
        Frame::kBottom, Frame::kRight);
    text((Frame::kLeft + Frame::kRight) / 2, Frame::kBottom + 40, "mid", "time of the replay (s)");
    const double middle = (Frame::kTop + Frame::kBottom) / 2;
    add("<text class=\"mid\" transform=\"translate(24 {:g}) rotate(-90)\">audio lead: timestamp "
        "minus clock (ms)</text>",
        middle);
}

void LeadChart::drawFreeRuns() {
    const auto& decisions = mTrack.decisions();
    for (size_t begin = 0; begin < decisions.size(); ++begin) {
        if (decisions[begin].kind != Kind::FREE_RUN) {
            continue;
        }
        size_t end = begin;
        while (end + 1 < decisions.size() && decisions[end].kind == Kind::FREE_RUN) {
            ++end;
        }
        const double left = mFrame.x(secOf(decisions[begin].timeNs));
        const double width = std::max(mFrame.x(secOf(decisions[end].timeNs)) - left, 1.0);
        add("<rect class=\"run\" x=\"{:.2f}\" y=\"{:g}\" width=\"{:.2f}\" height=\"{:g}\"/>", left,
            Frame::kTop, width, Frame::kBottom - Frame::kTop);
        if (width > 60) {
            text(left + width / 2, Frame::kBottom - 8, "small mid", "free run");
        }
        begin = end;
    }
}

void LeadChart::drawEvents() {
    // From right to left: a name that would touch the next event's line or name moves up a row. A
    // line ends at the row of its own name.
    constexpr size_t kRowCount = 3;
    double rowBegins[kRowCount];
    std::fill(std::begin(rowBegins), std::end(rowBegins), Frame::kWidth);
    const auto& events = mTrack.events();
    for (size_t i = events.size(); i-- > 0;) {
        const auto& event = events[i];
        const double x = mFrame.x(secOf(event.timeNs));
        const double width = 8 + 7.5 * static_cast<double>(event.text.size());
        const bool isLeft = x + width > Frame::kWidth;
        const double end = isLeft ? x : x + width;
        size_t row = 0;
        while (row < kRowCount - 1 &&
               end > *std::min_element(rowBegins + row, std::end(rowBegins))) {
            ++row;
        }
        rowBegins[row] = isLeft ? x - width : x;
        const double y = Frame::kTop - 8 - 16 * static_cast<double>(row);
        add("<path class=\"event\" d=\"M{:.2f} {:g}V{:g}\"/>", x, y - 10, Frame::kBottom);
        text(isLeft ? x - 5 : x + 5, y, isLeft ? "eventname end" : "eventname", event.text);
    }
}

void LeadChart::drawLead() {
    // There are more points than pixels: each half pixel shows its lowest and its highest point.
    constexpr double kColumn = 0.5;
    bool isPen = false;
    double column = -1;
    double low = 0;
    double high = 0;
    std::string path;
    const auto endColumn = [&] {
        if (isPen && high > low) {
            path += fmt::format("V{:.2f}V{:.2f}", low, high);
        }
    };
    for (const SyncDecision& decision : mTrack.decisions()) {
        if (!decision.hasClock) {
            isPen = false;
            continue;
        }
        const double x = mFrame.x(secOf(decision.timeNs));
        const double y = mFrame.y(msOf(decision.leadNs()));
        if (isPen && x - column < kColumn) {
            low = std::min(low, y);
            high = std::max(high, y);
            continue;
        }
        endColumn();
        path += fmt::format("{}{:.2f} {:.2f}", isPen ? 'L' : 'M', x, y);
        isPen = true;
        column = x;
        low = y;
        high = y;
    }
    endColumn();
    add("<path class=\"lead\" d=\"");
    mSvg += path + "\"/>";
}

void LeadChart::shape(Kind kind, double x, double y, const std::string& tip) {
    switch (kind) {
        case Kind::SILENCE:
            add("<path class=\"mark silence\" d=\"M{:.2f} {:.2f}l6 10h-12z\">", x, y - 6);
            break;
        case Kind::DROP:
            add("<path class=\"mark dropped\" d=\"M{:.2f} {:.2f}l6 -10h-12z\">", x, y + 6);
            break;
        default:
            add("<path class=\"mark anchor\" d=\"M{:.2f} {:.2f}l6 6l-6 6l-6 -6z\">", x, y - 6);
    }
    mSvg += "<title>" + markupText(tip) + "</title></path>";
}

void LeadChart::drawCorrections() {
    // In pixels. One mark of a kind in each column: more would cover each other.
    constexpr double kColumn = 1;
    double formerX[] = {-kColumn, -kColumn, -kColumn};
    for (const SyncDecision& decision : mTrack.decisions()) {
        if (decision.kind == Kind::NONE || decision.kind == Kind::FREE_RUN) {
            continue;
        }
        double& former = formerX[decision.kind == Kind::ANCHOR    ? 0
                                 : decision.kind == Kind::SILENCE ? 1
                                                                  : 2];
        const double x = mFrame.x(secOf(decision.timeNs));
        if (x - former < kColumn) {
            continue;
        }
        former = x;
        std::string tip = fmt::format("{} at {:.3f} s", decision.name(), secOf(decision.timeNs));
        if (decision.hasClock) {
            tip += fmt::format(", audio lead {:+.1f} ms", msOf(decision.leadNs()));
        }
        // After an anchor the clock is at the timestamp: no lead.
        const bool hasLead = decision.hasClock && decision.kind != Kind::ANCHOR;
        shape(decision.kind, x, mFrame.y(hasLead ? msOf(decision.leadNs()) : 0), tip);
    }
}

void LeadChart::drawReturns() {
    double formerEnd = 0;
    for (const Excursion& excursion : mTrack.excursions(mBounds)) {
        const double x = mFrame.x(secOf(excursion.beginNs));
        const bool isLeft = x > Frame::kRight - 250;
        // Where excursions follow each other closely, only the first has a note.
        if (!excursion.isOver || x < formerEnd) {
            continue;
        }
        formerEnd = x + 250;
        const double outsideMs = msOf(excursion.endNs - excursion.beginNs);
        text(isLeft ? x - 12 : x + 12, mFrame.y(msOf(excursion.worstLeadNs)) + 4,
             isLeft ? "note end" : "note",
             fmt::format("{:+.0f} ms", msOf(excursion.worstLeadNs)) +
                 (outsideMs < 1 ? ", inside again at once"
                                : fmt::format(", inside again after {:.0f} ms", outsideMs)));
    }
}

void LeadChart::drawLegend() {
    constexpr double kRow = Frame::kHeight - 56;
    double x = Frame::kLeft;
    add("<path class=\"lead\" d=\"M{:g} {:g}h24\"/>", x, kRow);
    text(x + 32, kRow + 4, "", "audio lead at each decision");
    x += 232;
    add("<path class=\"event\" d=\"M{:g} {:g}v18\"/>", x + 6, kRow - 9);
    text(x + 18, kRow + 4, "", "clock event");
    x += 120;
    const struct {
        Kind kind;
        const char* words;
        double width;
    } marks[] = {{Kind::SILENCE, "silence inserted", 138},
                 {Kind::DROP, "audio dropped", 126},
                 {Kind::ANCHOR, "clock re-anchored", 150}};
    for (const auto& mark : marks) {
        shape(mark.kind, x + 6, kRow, mark.words);
        text(x + 18, kRow + 4, "", mark.words);
        x += mark.width;
    }
    add("<rect class=\"run\" x=\"{:g}\" y=\"{:g}\" width=\"16\" height=\"14\"/>", x, kRow - 7);
    text(x + 24, kRow + 4, "", "free run, no decisions");
    text(Frame::kLeft, kRow + 32, "small",
         fmt::format(
             "tolerated: -{} to +{} ms; corrected: down to -{} and up to +{} ms; beyond that "
             "the clock is anchored anew",
             mBounds.videoThresholdMs, mBounds.audioThresholdMs, mBounds.videoUpperMs,
             mBounds.audioUpperMs));
}

void LeadChart::text(double x, double y, const char* style, const std::string& words) {
    add("<text class=\"{}\" x=\"{:.2f}\" y=\"{:.2f}\">", style, x, y);
    mSvg += markupText(words) + "</text>";
}

void LeadChart::write(const std::string& path) const {
    OutputFile file(path);
    const auto byteCount = static_cast<sf_count_t>(mSvg.size());
    if (OutputFile::io()->write(mSvg.data(), byteCount, &file) != byteCount || file.close() != 0) {
        file.remove();
        throw ToolError(path + ": writing failed; make room or choose another place with --svg");
    }
}

}  // namespace android
