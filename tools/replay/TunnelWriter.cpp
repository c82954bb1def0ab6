#include "tools/replay/TunnelWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/process/ToolError.h"
#include "tools/replay/ClockEvent.h"

namespace android {

namespace {

constexpr size_t kChunkByteCount = size_t{256} << 10;
// A write waits for room for a second; a tenth of that in one write is never lost.
constexpr int kMaxPiecesPerSec = 10;
// So many say whether the format is that of the payload.
constexpr uint64_t kTellingBursts = 50;

/** What is wrong with a burst, such as "gap of 200.000 ms"; empty: nothing is. */
std::string faultOf(const BurstTally::Finding& finding) {
    std::string text;
    for (const char* note : finding.notes) {
        const std::string word = note;
        const bool isStep = word == "gap" || word == "overlap" || word == "jump back";
        // A mode changes as its sender meant it; jitter is no fault of one burst.
        if (word == "mode change" || (isStep && finding.isJitter)) {
            continue;
        }
        text += (text.empty() ? "" : ", ") + word;
        if (isStep) {
            const auto errorNs =
                static_cast<double>(finding.stepNs) - static_cast<double>(finding.expectedNs);
            text += fmt::format(" of {:.3f} ms", std::abs(errorNs) / 1e6);
        }
    }
    return text;
}

}  // namespace

TunnelWriter::TunnelWriter(const Library& library, audio_proxy_stream_t* stream, BurstFile& file,
                           const sp<AVSyncClock>& clock, SyncTrack& track, const Config& config)
    : mLibrary(library),
      mStream(stream),
      mFile(file),
      mClock(clock),
      mTrack(track),
      mConfig(config),
      mScanner(*this),
      mTally(config.format, config.toleranceNs),
      mIsOffsetDue(config.offsetNs != 0) {}

bool TunnelWriter::isOver() const {
    const int64_t elapsedNs = systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs;
    return mIsStopped.load(std::memory_order_relaxed) ||
           (mConfig.maxNs > 0 && elapsedNs >= mConfig.maxNs);
}

void TunnelWriter::run(nsecs_t startNs) {
    mStartNs = startNs;
    TunnelLog log;
    std::vector<uint8_t> chunk(kChunkByteCount);
    while (const size_t byteCount = mFile.read(chunk.data(), chunk.size())) {
        {
            const TunnelLog::Mute mute;
            mScanner.feed(chunk.data(), byteCount);
        }
        for (size_t done = 0; done < byteCount;) {
            if (isOver()) {
                return;
            }
            const size_t piece = pieceOf(byteCount - done, mByteCount);
            writePiece(chunk.data() + done, piece, log);
            done += piece;
        }
    }
    judgeEnd();
    checkDropped();
}

void TunnelWriter::judge(const Burst& burst, double timeSec) {
    judgeGarbage(burst.offset, timeSec);
    const std::string fault = faultOf(mTally.add(burst));
    if (!fault.empty()) {
        mFaults.add(
            {.timeSec = timeSec, .burstIndex = burst.index, .offset = burst.offset, .what = fault});
    }
    if (mTally.burstCount() == kTellingBursts) {
        judgeFormat();
    }
}

void TunnelWriter::judgeFormat() {
    if (mTally.isFormatDoubtful() && formatDoubt() == nullptr) {
        mFormatDoubt = mTally.formatDoubt();
        mIsFormatDoubtful.store(true, std::memory_order_release);
    }
}

/** What lies in front of `endOffset`. */
void TunnelWriter::judgeGarbage(uint64_t endOffset, double timeSec) {
    for (; !mGarbage.empty() && mGarbage.front().offset < endOffset; mGarbage.pop_front()) {
        const Garbage& garbage = mGarbage.front();
        mTally.addGarbage(garbage.byteCount);
        mFaults.add({.timeSec = timeSec,
                     .burstIndex = mTally.burstCount(),
                     .offset = garbage.offset,
                     .what = fmt::format("{} bytes of garbage", garbage.byteCount)});
    }
}

/** What only the end of the stream tells. */
void TunnelWriter::judgeEnd() {
    mScanner.finish();
    const double timeSec = nowSec();
    judgeGarbage(UINT64_MAX, timeSec);
    mTally.finish(mScanner);
    judgeFormat();
    const auto addCut = [&](uint64_t byteCount, const char* what) {
        if (byteCount > 0) {
            mFaults.add({.timeSec = timeSec,
                         .burstIndex = mTally.burstCount() - (mTally.burstCount() > 0 ? 1 : 0),
                         .offset = mByteCount,
                         .what = fmt::format("{}{}", byteCount, what)});
        }
    };
    addCut(mScanner.cutHeaderByteCount(), " bytes of a header cut at the end");
    addCut(mScanner.missingPayloadByteCount(), " bytes missing from the last payload");
}

size_t TunnelWriter::pieceOf(size_t byteCount, uint64_t offset) const {
    const size_t limit = size_t{mConfig.format.rateHz} / kMaxPiecesPerSec;
    size_t piece = std::min(byteCount, limit * mConfig.format.frameBytes());
    const auto next = std::find_if(mPending.begin(), mPending.end(),
                                   [offset](const Burst& burst) { return burst.offset > offset; });
    if (next != mPending.end()) {
        piece = static_cast<size_t>(std::min<uint64_t>(piece, next->offset - offset));
    }
    return piece;
}

void TunnelWriter::writePiece(const uint8_t* bytes, size_t byteCount, TunnelLog& log) {
    mConfig.recorder->beginWrite();
    const nsecs_t beginNs = systemTime(SYSTEM_TIME_MONOTONIC);
    const int written = mLibrary.writeStream(mStream, bytes, byteCount);
    if (written < 0 || static_cast<size_t>(written) != byteCount) {
        throw ToolError(fmt::format(
            "{}: the library takes {} of {} bytes at offset {}; see its log with --log debug",
            mFile.path(), written, byteCount, mByteCount.load()));
    }
    mByteCount += byteCount;
    const std::vector<TunnelLog::Line> lines = log.take();
    for (const TunnelLog::Line& line : lines) {
        if (line.kind == TunnelLog::Line::Kind::DROPPED) {
            mTrack.addDropped(line.byteCount);
        } else if (line.kind == TunnelLog::Line::Kind::SILENCE) {
            mTrack.addSilence(line.byteCount);
        } else if (line.kind == TunnelLog::Line::Kind::MISSED) {
            mTrack.addMissed(line.byteCount);
        }
    }
    const bool hasBurst = !mPending.empty() && mPending.front().headerEnd() <= mByteCount;
    mConfig.recorder->noteWrite({.bytes = bytes,
                                 .byteCount = byteCount,
                                 .offset = mByteCount - byteCount,
                                 .burst = hasBurst ? &mPending.front() : nullptr,
                                 .lines = lines});
    if (hasBurst) {
        judge(mPending.front(), static_cast<double>(beginNs - mStartNs) / 1e9);
        note(mPending.front(), beginNs, lines);
        mPending.pop_front();
    }
}

SyncDecision TunnelWriter::decisionOf(const Burst& burst, nsecs_t beginNs) {
    // Without a look at the clock there was no decision.
    SyncDecision decision;
    decision.timeNs = beginNs - mStartNs;
    decision.burstIndex = burst.index;
    decision.ptsNs = burst.ptsNs;
    decision.kind = SyncDecision::Kind::FREE_RUN;
    for (const AVSyncRecord& record : mClock->takeRecords()) {
        if (record.call == AVSyncCall::kStart || record.call == AVSyncCall::kResume) {
            mIsStarting = true;
        } else if (record.call == AVSyncCall::kGetSyncPts) {
            decision.kind = SyncDecision::Kind::NONE;
            decision.timeNs = record.timeNs - mStartNs;
            decision.clockNs = record.valueNs;
            decision.hasClock = !mIsStarting;
        } else if (record.call == AVSyncCall::kUpdateAudioPts) {
            decision.kind = SyncDecision::Kind::ANCHOR;
            mIsStarting = false;
        }
    }
    return decision;
}

void TunnelWriter::note(const Burst& burst, nsecs_t beginNs,
                        const std::vector<TunnelLog::Line>& lines) {
    SyncDecision decision = decisionOf(burst, beginNs);
    for (const TunnelLog::Line& line : lines) {
        if (line.kind == TunnelLog::Line::Kind::SILENCE) {
            decision.kind = SyncDecision::Kind::SILENCE;
            decision.correctionMs = line.ms;
        } else if (line.kind == TunnelLog::Line::Kind::DROP) {
            decision.kind = SyncDecision::Kind::DROP;
            decision.correctionMs = line.ms;
        }
    }
    checkLogged(decision);
    if (decision.kind == SyncDecision::Kind::DROP) {
        mToDropByteCount += burst.usedPayloadByteCount();
    }
    mTrack.addDecision(decision);
    if (mIsOffsetDue && decision.kind == SyncDecision::Kind::ANCHOR) {
        applyOffset();
    }
}

void TunnelWriter::checkLogged(const SyncDecision& decision) const {
    if (decision.kind == SyncDecision::Kind::NONE && decision.hasClock &&
        !mBounds.tolerate(decision)) {
        throw ToolError(fmt::format(
            "{}: burst {} was {:+.1f} ms off the clock, and the library's log has no line that "
            "says how it was corrected; use the program and the library of one version, and see "
            "the log with --log debug",
            mFile.path(), decision.burstIndex, static_cast<double>(decision.leadNs()) / 1e6));
    }
}

void TunnelWriter::checkDropped() const {
    if (mToDropByteCount > 0 && mTrack.latest().kind != SyncDecision::Kind::DROP &&
        mTrack.droppedByteCount() == 0) {
        throw ToolError(
            mFile.path() +
            ": the library decided to drop audio, and its log has no line that says how much; use "
            "the program and the library of one version, and see the log with --log debug");
    }
}

void TunnelWriter::applyOffset() {
    mIsOffsetDue = false;
    ClockEvent event;
    event.jumpNs = mConfig.offsetNs;
    const nsecs_t timeNs = systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs;
    mTrack.addEvent({.timeNs = timeNs, .text = "offset, " + event.applyTo(*mClock)});
}

}  // namespace android
