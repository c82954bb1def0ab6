#include "tools/commands/PackCommand.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/audio/FrameSource.h"
#include "tools/audio/Handover.h"
#include "tools/audio/OpenInput.h"
#include "tools/process/Interrupt.h"
#include "tools/process/InterruptExit.h"
#include "tools/process/OutputPaths.h"
#include "tools/text/PrintTo.h"
#include "tools/text/TimeText.h"
#include "tools/text/Utf8.h"

namespace android {

namespace {

constexpr size_t kFrameBytes = 4;  // 16-bit stereo
constexpr int64_t kMaxBurstFrameCount = 1 << 22;

constexpr const char* kFooter =
    "The payload is 16-bit stereo at the file's own rate, mono in both channels. Times are 250ms,\n"
    "2.5s, 1:30, or seconds. The same options and the same --seed make the same file. A pipe (-) "
    "of\n"
    "WAV, FLAC or Ogg is read to its end first.\n"
    "\n"
    "Faults, each KIND or KIND=COUNT, strewn by the seed, two sound bursts apart at least:\n"
    "  garbage      up to 4096 bytes in front of a header\n"
    "  cut-header   the header ends behind its size, and its payload is lost\n"
    "  wrong-size   the header announces half of its payload or less\n"
    "  absurd-size  the header announces 2^31 bytes or more\n"
    "  version-1    a header of version 1, which tunnel streams skip\n"
    "\n"
    "Examples:\n"
    "  streamproxy hwsync pack music.ogg -o stream.hws\n"
    "  streamproxy hwsync pack music.ogg -o stream.hws --jitter 3ms --gap 2s:500ms --fault "
    "garbage=3\n"
    "\n"
    "Exit codes: 0 done; 1 a file or the disk failed; 2 wrong usage; 130 Ctrl-C and 143 SIGTERM,\n"
    "with what was packed until then in a valid file.";

std::vector<TimeSpan> parseGaps(const std::vector<std::string>& texts) {
    std::vector<TimeSpan> spans;
    for (const std::string& text : texts) {
        const TimeSplit split = splitAtColon(text, "--gap", "2s:500ms");
        const int64_t beginNs = parseTimeNs(split.first, "--gap");
        spans.push_back(
            {.beginNs = beginNs, .endNs = beginNs + parseTimeNs(split.second, "--gap")});
    }
    return spans;
}

std::vector<TimeSpan> parseFreeRuns(const std::vector<std::string>& texts) {
    std::vector<TimeSpan> spans;
    for (const std::string& text : texts) {
        const TimeSplit split = splitAtColon(text, "--free-run", "4s:6s");
        spans.push_back({.beginNs = parseTimeNs(split.first, "--free-run"),
                         .endNs = parseTimeNs(split.second, "--free-run")});
        if (spans.back().beginNs >= spans.back().endNs) {
            throw ToolError("--free-run: '" + text + "' ends before it begins; write FROM:TO",
                            EXIT_USAGE);
        }
    }
    return spans;
}

void warnOfIdleSpans(const char* option, const std::vector<std::string>& texts,
                     const std::vector<TimeSpan>& spans, const PackPlan::Config& config) {
    for (size_t index = 0; index < spans.size(); ++index) {
        if (!config.hasBurstIn(spans[index])) {
            fprintf(stderr,
                    "streamproxy: warning: %s %s has no effect: no burst begins in it; the audio "
                    "lasts %.3f s, a burst %.3f s\n",
                    option, texts[index].c_str(),
                    static_cast<double>(config.frameCount) / config.rateHz,
                    static_cast<double>(config.burstFrameCount) / config.rateHz);
        }
    }
}

int64_t framesOf(int64_t timeNs, int64_t rateHz) {
    return timeNs / 1'000'000'000 * rateHz + timeNs % 1'000'000'000 * rateHz / 1'000'000'000;
}

}  // namespace

PackCommand::PackCommand(CLI::App& parent)
    : mCommand(parent.add_subcommand("pack", "Make a burst stream from an audio file")) {
    mCommand->add_option("AUDIO", mAudioPath, "The audio file, or - for standard input")
        ->type_name("")
        ->required();
    mCommand->add_option("-o,--output", mOutputPath, "The burst stream; - is standard output")
        ->type_name("FILE")
        ->required();
    CLI::Option* burst = mCommand->add_option("--burst", mBurst, "Length of a burst's payload")
                             ->type_name("TIME")
                             ->capture_default_str();
    mCommand->add_option("--burst-frames", mBurstFrameCount, "The same in frames")
        ->check(CLI::Range(int64_t{1}, kMaxBurstFrameCount))
        ->excludes(burst);
    mCommand->add_option("--first-pts", mFirstPts, "The first timestamp")
        ->type_name("TIME")
        ->capture_default_str();
    mCommand->add_option("--jitter", mJitter, "Put timestamps off by up to this, either way")
        ->type_name("TIME")
        ->capture_default_str();
    mCommand->add_flag("--downmix", mIsDownmixed,
                       "3 to 8 channels as stereo, as with 'mix'; else the first two");
    mCommand->add_option("--length", mLength, "End after this much audio")->type_name("TIME");
    mCommand->add_option("--gap", mGaps, "Audio that is missing while timestamps go on; repeatable")
        ->type_name("AT:LENGTH")
        ->allow_extra_args(false);
    mCommand->add_option("--free-run", mFreeRuns, "Bursts that ask for free run; repeatable")
        ->type_name("FROM:TO")
        ->allow_extra_args(false);
    mCommand->add_option("--extension", mExtensionByteCount, "Bytes to extend every header by")
        ->check(CLI::Range(0, 65000))
        ->capture_default_str();
    mCommand->add_option("--fault", mFaults, "What to strew, see below; repeatable")
        ->type_name("KIND[=COUNT]")
        ->allow_extra_args(false);
    mCommand->add_option("--seed", mSeed, "For jitter and faults")->capture_default_str();
    mCommand->add_flag("--allow-truncated", mAllowTruncated, "Take what a damaged file still has");
    mCommand->add_flag("--quiet", mIsQuiet, "No summary");
    mCommand->footer(kFooter);
}

ExitCode PackCommand::run() const {
    OutputPaths paths;
    paths.addInput(mAudioPath);
    paths.addOutput(mOutputPath);
    paths.check();
    const auto reader = openInput(inputSpec(), mAllowTruncated, PipeUse::KEPT);
    SeededRandom random(mSeed);
    const PackPlan plan(planConfig(*reader), random);
    BurstWriter writer(mOutputPath, mExtensionByteCount, random);
    Interrupt::install();
    try {
        pack(*reader, plan, writer);
        writer.finish();
    } catch (const ToolError&) {
        writer.abandon();
        throw;
    }
    if (!mIsQuiet) {
        report(*reader, plan, writer);
    }
    return exitCodeNow();
}

InputSpec PackCommand::inputSpec() const {
    InputSpec spec;
    spec.path = mAudioPath;
    spec.isDownmixed = mIsDownmixed;
    return spec;
}

PackPlan::Config PackCommand::planConfig(const AudioInput& reader) const {
    const uint32_t rateHz = reader.rateHz();
    PackPlan::Config config = {.rateHz = rateHz,
                               .frameCount = reader.frameCount(),
                               .burstFrameCount = mBurstFrameCount,
                               .firstPtsNs = parseTimeNs(mFirstPts, "--first-pts"),
                               .jitterNs = parseTimeNs(mJitter, "--jitter"),
                               .gaps = parseGaps(mGaps),
                               .freeRuns = parseFreeRuns(mFreeRuns),
                               .wishes = {}};
    if (config.burstFrameCount == 0) {
        config.burstFrameCount = framesOf(parseTimeNs(mBurst, "--burst"), rateHz);
    }
    if (config.burstFrameCount < 1 || config.burstFrameCount > kMaxBurstFrameCount) {
        throw ToolError(fmt::format("--burst: {} is {} frames; a burst has from 1 to {}", mBurst,
                                    config.burstFrameCount, kMaxBurstFrameCount),
                        EXIT_USAGE);
    }
    if (!mLength.empty()) {
        config.frameCount =
            std::min(config.frameCount, framesOf(parseTimeNs(mLength, "--length"), rateHz));
    }
    for (const std::string& text : mFaults) {
        config.wishes.push_back(FaultWish::parse(text));
    }
    warnOfIdleSpans("--gap", mGaps, config.gaps, config);
    warnOfIdleSpans("--free-run", mFreeRuns, config.freeRuns, config);
    return config;
}

void PackCommand::pack(AudioInput& reader, const PackPlan& plan, BurstWriter& writer) const {
    const Handover handover({.rateHz = reader.rateHz(), .channelCount = 2, .fits16Bits = true},
                            reader.rateHz(),
                            {.isNative = false, .bufferFrames = 0, .writeFrames = 0});
    FrameSource source(reader, handover, {});
    int64_t position = 0;
    std::vector<uint8_t> frames;
    const auto read = [&](int64_t frameCount) {
        frames.resize(static_cast<size_t>(frameCount) * kFrameBytes);
        const size_t got = source.next(frames.data(), static_cast<size_t>(frameCount));
        frames.resize(got * kFrameBytes);
        position += static_cast<int64_t>(got);
        return got > 0;
    };
    for (const PackPlan::Item& item : plan.items()) {
        bool isThere = true;
        while (isThere && position < item.beginFrame) {
            isThere = read(std::min<int64_t>(item.beginFrame - position, 65536));
        }
        // The end of a damaged file comes early.
        if (!isThere || !read(item.frameCount) || Interrupt::signalNumber() != 0) {
            break;
        }
        writer.write(item, frames);
    }
}

void PackCommand::report(const AudioInput& reader, const PackPlan& plan,
                         const BurstWriter& writer) const {
    const std::string name = terminalText(mOutputPath);
    const char* path = name.c_str();
    printTo(stderr, "{}: {}\n", terminalText(mAudioPath), reader.describe());
    if (reader.channelCount() > 2) {
        printTo(stderr,
                "streamproxy: warning: {} has {} channels; only the first two are packed, all with "
                "--downmix\n",
                terminalText(mAudioPath), reader.channelCount());
    }
    printTo(stderr, "{}: {} of {} bursts, {} bytes, seed {}\n", path, writer.itemCount(),
            plan.items().size(), writer.byteCount(), mSeed);
    printTo(stderr, "  16-bit stereo at {} Hz, timestamps from {:.3f} s to {:.3f} s\n",
            reader.rateHz(), static_cast<double>(plan.items().front().ptsNs) / 1e9,
            static_cast<double>(plan.items().back().ptsNs) / 1e9);
    for (const BurstWriter::Written& fault : writer.faults()) {
        printTo(stderr, "  fault {} at burst {}, offset {}: {}\n", nameOf(fault.fault), fault.item,
                fault.offset, fault.detail);
    }
    if (mOutputPath == "-") {
        return;
    }
    printTo(stderr,
            "The stream does not say its rate:\n  streamproxy hwsync inspect {} --rate {}\n  "
            "streamproxy hwsync replay {} --rate {}\n",
            path, reader.rateHz(), path, reader.rateHz());
}

}  // namespace android
