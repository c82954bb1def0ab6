#include "tools/report/MixPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "tools/chart/AudioStrips.h"
#include "tools/chart/BlockStrips.h"
#include "tools/chart/GainStrip.h"
#include "tools/chart/StateStrip.h"
#include "tools/text/Decibels.h"

namespace android {

namespace {

/** As fine as the page can be and stay small, however many inputs there are. */
int columnsFor(size_t inputCount) {
    constexpr size_t kMostColumns = 1000;
    constexpr size_t kAllColumns = 25000;
    return static_cast<int>(std::clamp<size_t>(kAllColumns / (inputCount + 3), 100, kMostColumns));
}

std::string nameOf(const MixInput& input) {
    return input.spec.isPipe() ? "standard input"
                               : std::filesystem::path(input.spec.path).filename().string();
}

std::string msText(const Course& course) {
    return fmt::format("{:.3f} and {:.3f} ms", course.mean(), course.highest());
}

}  // namespace

MixPage::MixPage(const MixSession& session, const std::vector<MixInput*>& inputs,
                 const MixRecorder& recorder, const MixOutput& mix, const MixLevels& levels,
                 const std::string& output, uint32_t rateHz)
    : mSession(session),
      mInputs(inputs),
      mRecorder(recorder),
      mLevels(levels),
      mRateHz(rateHz),
      mAxis(static_cast<double>(recorder.mix().nextFrame()) / rateHz, columnsFor(inputs.size())),
      mPage(mAxis,
            fmt::format("Mix of {}{}{}", inputs.size(),
                        inputs.size() == 1 ? " input: " : " inputs: ", output),
            "time of the mix") {
    addFigures(mix);
    addOverload();
    addInputFigures();
    addMix();
    for (size_t index = 0; index < inputs.size(); ++index) {
        addInput(index);
    }
}

void MixPage::addFigures(const MixOutput& mix) {
    const BlockTrack& blocks = mRecorder.blocks();
    const Levels levels = mix.meter().total();
    mPage.addFigures(
        "Figures of the mix",
        {{"rate", fmt::format("{} Hz", mRateHz)},
         {"length", fmt::format("{:.3f} s", static_cast<double>(levels.frameCount) / mRateHz)},
         {"peak", decibelText(mLevels.peak(levels.peak()))},
         {"RMS", decibelText(levels.rms())},
         {"clipped samples", std::to_string(mLevels.clippedCount())},
         {"wrapped samples", std::to_string(mLevels.wrappedCount())},
         {"blocks", std::to_string(blocks.frames().valueCount())},
         {"short blocks", std::to_string(blocks.shortBlockCount())},
         {"cycle, mean and longest", msText(blocks.cycles())},
         {"callback, mean and longest", msText(blocks.callbacks())},
         {"mixing, mean and longest", msText(blocks.mixing())},
         {"underruns of the device", std::to_string(mix.underrunCount())}});
}

void MixPage::addOverload() {
    const Overload& overload = mLevels.overload();
    if (overload.sampleCount() == 0) {
        return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const Overload::Stretch& stretch : overload.stretches()) {
        rows.push_back({fmt::format("{:.3f} s", overload.secondsOf(stretch.beginFrame)),
                        fmt::format("{:.3f} s", overload.secondsOf(stretch.endFrame)),
                        std::to_string(stretch.sampleCount)});
    }
    mPage.addTable(
        fmt::format("Beyond full scale: lower all gains by {:.1f} dB", overload.excessDb()),
        {"from", "to", "samples"}, rows);
}

void MixPage::addInputFigures() {
    std::vector<std::vector<std::string>> rows;
    for (size_t index = 0; index < mInputs.size(); ++index) {
        const MixInput& input = *mInputs[index];
        const InputTrack& track = mRecorder.input(index);
        const FeedBoard::Input board = mSession.board().input(index);
        const Lateness& late = mSession.cycle().lateness(index);
        const auto& peaks = input.source.peaks();
        const float peak = peaks.empty() ? 0.0f : *std::max_element(peaks.begin(), peaks.end());
        const int64_t written = std::clamp<int64_t>(
            board.writtenFrames - input.source.silentFrames(), 0, input.source.audioFramesRead());
        rows.push_back({nameOf(input), std::to_string(written),
                        std::to_string(mSession.cycle().heardFrames(index)),
                        decibelText(double{peak}), std::to_string(mLevels.heldCount(input, index)),
                        std::to_string(board.shortWriteCount), std::to_string(late.count),
                        fmt::format("{:.3f}", std::chrono::duration<double>(late.longest).count()),
                        fmt::format("{:.3f}", track.writeSec())});
    }
    mPage.addTable("Inputs",
                   {"input", "frames written", "frames heard", "peak", "clipped", "short writes",
                    "times late", "longest, s", "s inside writes"},
                   rows);
}

void MixPage::addMix() {
    mPage.addSection("The mix", "what went into the output",
                     AudioStrips(mAxis, mRecorder.mix(), "of the mix").html() +
                         BlockStrips(mAxis, mRecorder.blocks()).html());
}

void MixPage::addInput(size_t index) {
    const MixInput& input = *mInputs[index];
    const InputTrack& track = mRecorder.input(index);
    const double rampSec = static_cast<double>(input.handover.bufferFrames) / mRateHz;
    mPage.addSection(nameOf(input), input.spec.path + ": " + input.reader->describe(),
                     AudioStrips(mAxis, track.audio(), "as handed over, before its gain").html() +
                         GainStrip(mAxis, track.gains(), rampSec).html() + fill(index) +
                         states(index));
}

std::string MixPage::fill(size_t index) const {
    Strip strip(mAxis, {.kind = "room",
                        .title = "Buffer of the stream after each callback (% full)",
                        .heightPx = 48,
                        .scale = {.low = 0.0, .high = 1.0}});
    strip.tick(0.0, "0");
    strip.tick(1.0, "100");
    strip.course("room", mRecorder.input(index).fill());
    return strip.html();
}

double MixPage::audioEndSec(size_t index) const {
    const int64_t endFrame = mSession.board().input(index).audioEndFrame;
    return endFrame < 0 ? mAxis.endSec()
                        : mRecorder.secondsOf(mInputs[index]->handover.mixFramesOf(endFrame));
}

std::string MixPage::states(size_t index) const {
    using State = StateStrip::State;
    const InputTrack& track = mRecorder.input(index);
    const double startSec = mInputs[index]->spec.startSec;
    const double endSec = audioEndSec(index);
    const double pauseSec = track.pauseSec() < 0.0 ? mAxis.endSec() : track.pauseSec();
    StateStrip strip(mAxis);
    strip.add(State::SILENT, 0.0, startSec);
    strip.add(State::PLAYING, startSec, std::min(endSec, pauseSec));
    strip.add(State::PADDED, endSec, pauseSec);
    strip.add(State::PAUSED, pauseSec, mAxis.endSec());
    strip.add(State::LATE, track.delays(), [](const Moments::Column& delays) {
        return fmt::format(", for {:.0f} ms", delays.sum * 1000);
    });
    return strip.html();
}

}  // namespace android
