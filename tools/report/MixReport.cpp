#include "tools/report/MixReport.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>

#include "tools/text/Decibels.h"
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
    return count == 1 ? "once" : std::to_string(count) + " times";
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
    fprintf(stderr, "%s%s%s", mIsTerminal ? "\r" : "", progressLine().c_str(),
            mIsTerminal ? "   " : "\n");
    fflush(stderr);
}

std::string MixReport::progressLine() const {
    const int64_t mixed =
        std::max<int64_t>(mSession.cycle().mixedFrames() - mTarget.preRollFrames, 0);
    const double doneSec = std::min(static_cast<double>(mixed) / mTarget.rateHz, mTotalSec);
    char total[32] = "";
    if (std::isfinite(mTotalSec)) {
        snprintf(total, sizeof(total), " of %.1f", mTotalSec);
    }
    char text[128];
    if (isPlayed()) {
        snprintf(text, sizeof(text), "playing %.1f%s s, %" PRId64 " underruns", doneSec, total,
                 mMix.underrunCount());
    } else {
        snprintf(text, sizeof(text), "mixing %.1f%s s, %.1f x real time", doneSec, total,
                 doneSec / std::max(secondsSince(mStart), 1e-3));
    }
    return text;
}

void MixReport::clearLine() const {
    if (mMeters) {
        mMeters->clear();
    } else if (mIsTerminal && !mIsQuiet) {
        fprintf(stderr, "\r%60s\r", "");
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
    fprintf(stderr, "%s: %u Hz, %u-bit%s, stereo%s\n", terminalText(name).c_str(), mTarget.rateHz,
            mTarget.bits, mTarget.isFloat ? " float" : "",
            AudioWriter::fileBits(mTarget.path, mTarget.bits) < mTarget.bits
                ? ", 24-bit in the file"
                : "");
    fprintf(stderr, "  %" PRId64 " frames (%.3f s) in %" PRId64 " blocks, %" PRId64 " short\n",
            levels.frameCount, audioSec, mSession.cycle().blockCount(),
            mSession.cycle().shortBlockCount());
    fprintf(stderr, "  peak %s, RMS %s", decibelText(mLevels.peak(levels.peak())).c_str(),
            decibelText(levels.rms()).c_str());
    if (mTarget.bits == 16) {
        fprintf(stderr, ", %" PRId64 " samples wrapped", mLevels.wrappedCount());
    } else {
        fprintf(stderr, ", %" PRId64 " samples clipped", mLevels.clippedCount());
    }
    if (mTarget.isNormalized) {
        fprintf(stderr, ", normalized by %+.2f dB", mMix.normalizingDb());
    }
    fputc('\n', stderr);
    if (isPlayed()) {
        fprintf(stderr, "  played%s, %" PRId64 " underruns\n",
                mTarget.path.empty() ? "" : (" on " + device).c_str(), mMix.underrunCount());
    } else {
        fprintf(stderr, "  %.1f x real time\n", audioSec / std::max(secondsSince(mStart), 1e-6));
    }
}

void MixReport::inputLine(size_t index) const {
    const MixInput& input = *mInputs[index];
    const FeedBoard::Input state = mSession.board().input(index);
    fprintf(stderr, "%s: %s\n", terminalText(input.spec.path).c_str(),
            input.reader->describe().c_str());
    const MixCycle& cycle = mSession.cycle();
    fprintf(stderr,
            "  %" PRId64 " frames written, %" PRId64 " heard%s, %" PRId64 " short writes, peak %s",
            input.audioFramesOf(state.writtenFrames), cycle.heardFrames(index),
            cycle.maxLostFrames(index) > 0 ? " at least" : "", state.shortWriteCount,
            decibelText(input.peak()).c_str());
    if (const int64_t heldCount = mLevels.heldCount(input, index); heldCount > 0) {
        fprintf(stderr, ", %" PRId64 " samples clipped", heldCount);
    }
    fprintf(stderr, "\n");
    const Lateness& late = cycle.lateness(index);
    if (late.count > 0) {
        fprintf(stderr, "  late %s: the mix waited %.3f s for it, %.3f s at the longest\n",
                timesText(late.count).c_str(), secondsOf(late.total), secondsOf(late.longest));
    }
}

void MixReport::warnings() const {
    clearLine();
    for (const MixInput* input : mInputs) {
        if (input->reader->channelCount() > 2) {
            fprintf(stderr,
                    "streamproxy: warning: %s has %u channels; only the first two are heard, "
                    "all with downmix=itu\n",
                    terminalText(input->spec.path).c_str(), input->reader->channelCount());
        }
    }
    for (const MixInput* input : mInputs) {
        if (input->spec.boost > 1.0f && input->source.clippedCount() > 0) {
            fprintf(stderr,
                    "streamproxy: warning: %s has a gain above 0 dB, which pushes %" PRId64
                    " samples beyond 16 bits: lower it, or use --format 32 and --rate %u\n",
                    terminalText(input->spec.path).c_str(), input->source.clippedCount(),
                    input->reader->rateHz());
        }
    }
    if (mLevels.overload().sampleCount() > 0) {
        warnOfOverload();
    }
    if (mLevels.uncheckedCount() > 0) {
        fprintf(stderr,
                "streamproxy: warning: %" PRId64
                " samples could not be checked for wrapping, since short blocks lost frames\n",
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
            makers += (makers.empty() ? "" : ", ") + name + " made " +
                      std::to_string(cycle.shortenedCount(index)) + " short";
        }
        const int64_t lostFrames = cycle.maxLostFrames(index);
        if (lostFrames > 0) {
            maxLostFrames += lostFrames;
            losers += ", " + name + " up to " + std::to_string(lostFrames) + " of " +
                      std::to_string(mInputs[index]->source.audioFramesRead());
        }
    }
    fprintf(stderr,
            "streamproxy: warning: %" PRId64 " of %" PRId64 " blocks came short; up to %" PRId64
            " frames of the inputs are lost%s%s%s\n",
            cycle.shortBlockCount(), cycle.blockCount(), maxLostFrames, losers.c_str(),
            makers.empty() ? "" : "; ", makers.c_str());
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
        fprintf(stderr,
                "streamproxy: warning: the mix waited for %s; the other inputs' short writes come "
                "from that\n",
                late.c_str());
    }
}

void MixReport::warnOfOverload() const {
    const Overload& overload = mLevels.overload();
    const auto& stretches = overload.stretches();
    constexpr size_t kShown = 3;
    std::string times;
    for (size_t i = 0; i < std::min(stretches.size(), kShown); ++i) {
        char text[64];
        snprintf(text, sizeof(text), "%s%.3f to %.3f s", i == 0 ? "" : ", ",
                 overload.secondsOf(stretches[i].beginFrame),
                 overload.secondsOf(stretches[i].endFrame));
        times += text;
    }
    if (stretches.size() > kShown) {
        times += " and " + std::to_string(stretches.size() - kShown) + " more times (see --json)";
    }
    const char* fate = mTarget.bits == 16 ? "wrapped around"
                       : mTarget.isFloat  ? "lie above full scale and are kept"
                                          : "were held to full scale";
    fprintf(stderr,
            "streamproxy: warning: %" PRId64
            " samples %s, at %s; lower all gains by %.1f dB (--headroom %.1f)%s\n",
            overload.sampleCount(), fate, times.c_str(), overload.excessDb(),
            mTarget.headroomDb + overload.excessDb(), isPlayed() ? "" : ", or use --normalize");
}

}  // namespace android
