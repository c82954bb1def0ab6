#include "tools/report/MixReport.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>

#include "tools/text/Decibels.h"

namespace android {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRewriteInterval{250};
constexpr std::chrono::milliseconds kLineInterval{10000};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

MixReport::MixReport(MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
                     const MixTarget& target, bool isQuiet, bool isJson)
    : mSession(session),
      mInputs(inputs),
      mMix(mix),
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
    fprintf(stderr, "%s: %u Hz, %u-bit, stereo\n", name.c_str(), mTarget.rateHz, mTarget.bits);
    fprintf(stderr, "  %" PRId64 " frames (%.3f s) in %" PRId64 " blocks, %" PRId64 " short\n",
            levels.frameCount, audioSec, mSession.cycle().blockCount(),
            mSession.cycle().shortBlockCount());
    fprintf(stderr, "  peak %s, RMS %s", decibelText(levels.peak()).c_str(),
            decibelText(levels.rms()).c_str());
    if (mTarget.bits == 32) {  // with 16, sums have wrapped around where nobody can count them
        fprintf(stderr, ", %" PRId64 " samples clipped", levels.clippedCount);
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
    fprintf(stderr, "%s: %s\n", input.spec.path.c_str(), input.reader->describe().c_str());
    const MixCycle& cycle = mSession.cycle();
    fprintf(stderr,
            "  %" PRId64 " frames written, %" PRId64 " heard%s, %" PRId64 " short writes, peak %s",
            input.audioFramesOf(state.writtenFrames), cycle.heardFrames(index),
            cycle.maxLostFrames(index) > 0 ? " at least" : "", state.shortWriteCount,
            decibelText(input.peak()).c_str());
    if (input.source.clippedCount() > 0) {
        fprintf(stderr, ", %" PRId64 " samples clipped", input.source.clippedCount());
    }
    fprintf(stderr, "\n");
}

void MixReport::warnings() const {
    clearLine();
    for (const MixInput* input : mInputs) {
        if (input->reader->channelCount() > 2) {
            fprintf(stderr,
                    "streamproxy: warning: %s has %u channels; only the first two are heard\n",
                    input->spec.path.c_str(), input->reader->channelCount());
        }
    }
    if (mTarget.bits == 16) {
        warnOfWrapping();
    }
    const MixCycle& cycle = mSession.cycle();
    if (cycle.shortBlockCount() > 0) {
        int64_t maxLostFrames = 0;
        for (size_t index = 0; index < mInputs.size(); ++index) {
            maxLostFrames += cycle.maxLostFrames(index);
        }
        fprintf(stderr,
                "streamproxy: warning: %" PRId64 " of %" PRId64 " blocks came short; up to %" PRId64
                " frames of the inputs are lost\n",
                cycle.shortBlockCount(), cycle.blockCount(), maxLostFrames);
    }
}

/** The library's 16-bit sums wrap around. What the inputs could reach together is known here. */
void MixReport::warnOfWrapping() const {
    const double preRollSec = static_cast<double>(mTarget.preRollFrames) / mTarget.rateHz;
    std::vector<double> sums;
    for (const MixInput* input : mInputs) {
        const auto& peaks = input->source.peaks();
        sums.resize(std::max(sums.size(), peaks.size()));
        for (size_t window = 0; window < peaks.size(); ++window) {
            const double timeSec =
                static_cast<double>(window) / FrameSource::kPeaksPerSecond - preRollSec;
            // A single stream is held to full scale; only sums go beyond.
            sums[window] += std::min(double{peaks[window]} * input->spec.gainAt(timeSec), 1.0);
        }
    }
    const auto first = std::find_if(sums.begin(), sums.end(), [](double sum) { return sum > 1.0; });
    if (first != sums.end()) {
        const double firstSec =
            static_cast<double>(first - sums.begin()) / FrameSource::kPeaksPerSecond - preRollSec;
        fprintf(stderr,
                "streamproxy: warning: from %.1f s on, inputs that peak together can reach %s; "
                "beyond 0 dBFS a 16-bit mix wraps around: lower gains, or use --format 32\n",
                firstSec, decibelText(*std::max_element(first, sums.end())).c_str());
    }
}

}  // namespace android
