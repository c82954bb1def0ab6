#include "tools/report/MixReport.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "tools/text/Decibels.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRewriteInterval{250};
constexpr std::chrono::milliseconds kLineInterval{10000};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double secondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

std::string timesText(int64_t count) {
    return count == 1 ? "once" : fmt::format("{} times", count);
}

}  // namespace

MixReport::MixReport(MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
                     const MixLevels& levels, const MixTarget& target, bool isQuiet, bool isJson)
    : mSession(session),
      mInputs(inputs),
      mMix(mix),
      mLevels(levels),
      mTarget(target),
      mIsQuiet(isQuiet),
      mIsJson(isJson),
      mIsTerminal(isatty(STDERR_FILENO) != 0) {
    if (!mIsTerminal) {
        mNextLine = mStart + kLineInterval;
    }
    if (isPlayed() && !isQuiet && MeterDisplay::isPossible()) {
        mMeters.emplace(session, inputs, mix.meter());
    }
    for (const MixInput* input : mInputs) {
        double lengthSec = std::numeric_limits<double>::infinity();
        if (input->source.hasKnownLength()) {
            const int64_t frames =
                input->handover.mixFramesOf(input->promisedFrames()) - target.preRollFrames;
            lengthSec = static_cast<double>(frames) / target.rateHz;
        }
        mTotalSec = std::max(mTotalSec, lengthSec);
    }
}

void MixReport::progress() {
    if (mIsQuiet) {
        return;
    }
    if (mMeters) {
        mMeters->draw(progressLine());
        return;
    }
    if (Clock::now() < mNextLine) {
        return;
    }
    mNextLine = Clock::now() + (mIsTerminal ? kRewriteInterval : kLineInterval);
    printTo(stderr, "{}{}{}", mIsTerminal ? "\r" : "", progressLine(), mIsTerminal ? "   " : "\n");
    fflush(stderr);
}

std::string MixReport::progressLine() const {
    const int64_t mixed =
        std::max<int64_t>(mSession.cycle().mixedFrames() - mTarget.preRollFrames, 0);
    const double doneSec = std::min(static_cast<double>(mixed) / mTarget.rateHz, mTotalSec);
    const std::string total = std::isfinite(mTotalSec) ? fmt::format(" of {:.1f}", mTotalSec) : "";
    return isPlayed() ? fmt::format("playing {:.1f}{} s, {} underruns", doneSec, total,
                                    mMix.underrunCount())
                      : fmt::format("mixing {:.1f}{} s, {:.1f} x real time", doneSec, total,
                                    doneSec / std::max(secondsSince(mStart), 1e-3));
}

void MixReport::clearLine() const {
    if (mMeters) {
        mMeters->clear();
    } else if (mIsTerminal && !mIsQuiet) {
        printTo(stderr, "\r{:>60}\r", "");
    }
}

void MixReport::summary() const {
    clearLine();
    if (mIsQuiet || mIsJson) {
        return;
    }
    for (size_t index = 0; index < mInputs.size(); ++index) {
        inputLine(index);
    }
    outputLines();
}

void MixReport::outputLines() const {
    const Levels levels = mMix.meter().total();
    const double audioSec = static_cast<double>(levels.frameCount) / mTarget.rateHz;
    const std::string device = "sound device '" + mTarget.device + "'";
    const std::string name = mTarget.path.empty() ? device : mTarget.path;
    printTo(stderr, "{}: {} Hz, {}-bit{}, stereo{}\n", terminalText(name), mTarget.rateHz,
            mTarget.bits, mTarget.isFloat ? " float" : "",
            AudioWriter::fileBits(mTarget.path, mTarget.bits) < mTarget.bits
                ? ", 24-bit in the file"
                : "");
    printTo(stderr, "  {} frames ({:.3f} s) in {} blocks, {} short\n", levels.frameCount, audioSec,
            mSession.cycle().blockCount(), mSession.cycle().shortBlockCount());
    printTo(stderr, "  peak {}, RMS {}", decibelText(mLevels.peak(levels.peak())),
            decibelText(levels.rms()));
    if (mTarget.bits == 16) {
        printTo(stderr, ", {} samples wrapped", mLevels.wrappedCount());
    } else {
        printTo(stderr, ", {} samples clipped", mLevels.clippedCount());
    }
    if (mTarget.isNormalized) {
        printTo(stderr, ", normalized by {:+.2f} dB", mMix.normalizingDb());
    }
    fputc('\n', stderr);
    if (isPlayed()) {
        printTo(stderr, "  played{}, {} underruns\n", mTarget.path.empty() ? "" : (" on " + device),
                mMix.underrunCount());
    } else {
        printTo(stderr, "  {:.1f} x real time\n", audioSec / std::max(secondsSince(mStart), 1e-6));
    }
}

void MixReport::inputLine(size_t index) const {
    const MixInput& input = *mInputs[index];
    const FeedBoard::Input state = mSession.board().input(index);
    printTo(stderr, "{}: {}\n", terminalText(input.spec.path), input.reader->describe());
    const MixCycle& cycle = mSession.cycle();
    printTo(stderr, "  {} frames written, {} heard{}, {} short writes, peak {}",
            input.audioFramesOf(state.writtenFrames), cycle.heardFrames(index),
            cycle.maxLostFrames(index) > 0 ? " at least" : "", state.shortWriteCount,
            decibelText(input.peak()));
    if (const int64_t heldCount = mLevels.heldCount(input, index); heldCount > 0) {
        printTo(stderr, ", {} samples clipped", heldCount);
    }
    printTo(stderr, "\n");
    const Lateness& late = cycle.lateness(index);
    if (late.count > 0) {
        printTo(stderr, "  late {}: the mix waited {:.3f} s for it, {:.3f} s at the longest\n",
                timesText(late.count), secondsOf(late.total), secondsOf(late.longest));
    }
}

void MixReport::warnings() const {
    clearLine();
    for (const MixInput* input : mInputs) {
        if (input->reader->channelCount() > 2) {
            printTo(stderr,
                    "streamproxy: warning: {} has {} channels; only the first two are heard, all "
                    "with downmix=itu\n",
                    terminalText(input->spec.path), input->reader->channelCount());
        }
    }
    for (const MixInput* input : mInputs) {
        if (input->spec.boost > 1.0f && input->source.clippedCount() > 0) {
            printTo(stderr,
                    "streamproxy: warning: {} has a gain above 0 dB, which pushes {} samples "
                    "beyond 16 bits: lower it, or use --format 32 and --rate {}\n",
                    terminalText(input->spec.path), input->source.clippedCount(),
                    input->reader->rateHz());
        }
    }
    if (mLevels.overload().sampleCount() > 0) {
        warnOfOverload();
    }
    if (mLevels.uncheckedCount() > 0) {
        printTo(stderr,
                "streamproxy: warning: {} samples could not be checked for wrapping, since short "
                "blocks lost frames\n",
                mLevels.uncheckedCount());
    }
    if (mSession.cycle().shortBlockCount() > 0) {
        warnOfShortBlocks();
    }
    warnOfShortWrites();
}

void MixReport::warnOfShortBlocks() const {
    const MixCycle& cycle = mSession.cycle();
    std::string makers;
    std::string losers;
    int64_t maxLostFrames = 0;
    for (size_t index = 0; index < mInputs.size(); ++index) {
        const std::string name = terminalText(mInputs[index]->spec.path);
        if (cycle.shortenedCount(index) > 0) {
            makers += fmt::format("{}{} made {} short", makers.empty() ? "" : ", ", name,
                                  cycle.shortenedCount(index));
        }
        const int64_t lostFrames = cycle.maxLostFrames(index);
        if (lostFrames > 0) {
            maxLostFrames += lostFrames;
            losers += fmt::format(", {} up to {} of {}", name, lostFrames,
                                  mInputs[index]->source.audioFramesRead());
        }
    }
    printTo(stderr,
            "streamproxy: warning: {} of {} blocks came short; up to {} frames of the inputs are "
            "lost{}{}{}\n",
            cycle.shortBlockCount(), cycle.blockCount(), maxLostFrames, losers,
            makers.empty() ? "" : "; ", makers);
}

/** A mix that waits for one input takes nothing of the others. */
void MixReport::warnOfShortWrites() const {
    std::string late;
    int64_t shortWriteCount = 0;
    for (size_t index = 0; index < mInputs.size(); ++index) {
        shortWriteCount += mSession.board().input(index).shortWriteCount;
        if (mSession.cycle().lateness(index).longest >= std::chrono::seconds(1)) {
            late += (late.empty() ? "" : ", ") + terminalText(mInputs[index]->spec.path);
        }
    }
    if (shortWriteCount > 0 && !late.empty()) {
        printTo(stderr,
                "streamproxy: warning: the mix waited for {}; the other inputs' short writes come "
                "from that\n",
                late);
    }
}

void MixReport::warnOfOverload() const {
    const Overload& overload = mLevels.overload();
    const auto& stretches = overload.stretches();
    constexpr size_t kShown = 3;
    std::string times;
    for (size_t i = 0; i < std::min(stretches.size(), kShown); ++i) {
        times += fmt::format("{}{:.3f} to {:.3f} s", i == 0 ? "" : ", ",
                             overload.secondsOf(stretches[i].beginFrame),
                             overload.secondsOf(stretches[i].endFrame));
    }
    if (stretches.size() > kShown) {
        times += fmt::format(" and {} more times (see --json)", stretches.size() - kShown);
    }
    const char* fate = mTarget.bits == 16 ? "wrapped around"
                       : mTarget.isFloat  ? "lie above full scale and are kept"
                                          : "were held to full scale";
    printTo(stderr,
            "streamproxy: warning: {} samples {}, at {}; lower all gains by {:.1f} dB (--headroom "
            "{:.1f}){}\n",
            overload.sampleCount(), fate, times, overload.excessDb(),
            mTarget.headroomDb + overload.excessDb(), isPlayed() ? "" : ", or use --normalize");
}

}  // namespace android
