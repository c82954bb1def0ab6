#include "tools/commands/ReplayCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "hwsync/HwSyncBound.h"
#include "tools/chart/LeadChart.h"
#include "tools/host/LogSink.h"
#include "tools/host/Properties.h"
#include "tools/process/InterruptExit.h"
#include "tools/process/OutputPaths.h"
#include "tools/process/RealClock.h"
#include "tools/report/ReplayPage.h"
#include "tools/report/ReportFile.h"
#include "tools/text/GainText.h"
#include "tools/text/PrintTo.h"
#include "tools/text/TimeText.h"
#include "virtualtime/VirtualMachine.h"

namespace android {

namespace {

constexpr std::chrono::milliseconds kPollInterval{20};
constexpr int64_t kRewriteNs = 250'000'000;

struct PolicyProperty {
    const char* option;
    const char* property;
    const char* help;
};

constexpr PolicyProperty kPolicyProperties[] = {
    {"--alead-threshold", kAudioLeadThreshold.property,
     "Audio leads up to this many ms are tolerated"},
    {"--alead-upper", kAudioLeadUpper.property,
     "Audio leads beyond this many ms re-anchor the clock"},
    {"--vlead-threshold", kVideoLeadThreshold.property,
     "Video leads up to this many ms are tolerated"},
    {"--vlead-upper", kVideoLeadUpper.property,
     "Video leads beyond this many ms re-anchor the clock"},
};

constexpr const char* kFooter =
    "An output takes blocks at a sound card's pace, and a writer hands over the bursts as fast as\n"
    "they are taken. Time is virtual: it jumps to whatever comes next, so that a film takes\n"
    "seconds and the result is the same on every machine. --realtime plays as a device does.\n"
    "\n"
    "The audio lead is a burst's timestamp minus the clock's position when the library decides,\n"
    "as it parses the header. Times are 250ms, 2.5s, 1:30, or seconds.\n"
    "\n"
    "Events, counted from the first write:\n"
    "  AT:jump=TIME   the clock jumps, ahead (+400ms: audio is late) or back (-400ms)\n"
    "  AT:drift=PPM   it runs faster, or slower below 0, from then on\n"
    "  AT:pause       it stands still\n"
    "  AT:resume      it goes on\n"
    "\n"
    "Examples:\n"
    "  streamproxy hwsync replay stream.hws --event 5s:jump=+400ms --svg lead.svg -o out.wav\n"
    "  streamproxy hwsync replay stream.hws --offset -90ms --drift 200 --json\n"
    "  streamproxy hwsync replay stream.hws --rate 44100 --summary --max-heard +45,-125\n"
    "\n"
    "Exit codes: 0 done; 1 a file, the library or the disk failed; 2 wrong usage; 3 the machine "
    "was\n"
    "too busy, so that the figures are its own; 4 sound was heard beyond --max-heard;\n"
    "130 Ctrl-C and 143 SIGTERM, with a report and valid files of what was played until then.";

/** Reads EARLY,LATE in ms, such as +45,-125; throws ToolError (usage). */
std::optional<LeadRange> parseMaxHeard(const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const size_t comma = text.find(',');
    if (comma == std::string::npos) {
        throw ToolError("--max-heard: '" + text + "' lacks a ','; write +45,-125", EXIT_USAGE);
    }
    const auto boundOf = [](std::string bound) {
        if (bound.size() > 2 && bound.compare(bound.size() - 2, 2, "ms") == 0) {
            bound.resize(bound.size() - 2);
        }
        return parseNumber(bound, "--max-heard");
    };
    const LeadRange range = {.earlyMs = boundOf(text.substr(0, comma)),
                             .lateMs = boundOf(text.substr(comma + 1))};
    if (range.earlyMs < range.lateMs) {
        throw ToolError("--max-heard: '" + text +
                            "' allows nothing; first how early sound may be in ms, then how late, "
                            "below 0: +45,-125",
                        EXIT_USAGE);
    }
    return range;
}

}  // namespace

ReplayCommand::ReplayCommand(CLI::App& parent, const std::string& commandLine)
    : mCommand(parent.add_subcommand("replay", "Play a burst stream against the software clock")),
      mCommandLine(commandLine) {
    mCommand->add_option("FILE", mPath, "The burst stream, or - for standard input")
        ->type_name("")
        ->required();
    mFormat.addOptions(*mCommand);
    addClockOptions();
    addOutputOptions();
    mCommand->footer(kFooter);
}

void ReplayCommand::addClockOptions() {
    mCommand
        ->add_option("--offset", mOffset,
                     "Put the clock ahead of the audio by this, once it is anchored")
        ->type_name("TIME");
    mCommand->add_option("--drift", mDrift, "How much too fast the clock runs, in ppm")
        ->type_name("PPM");
    mCommand->add_option("--event", mEvents, "What the clock does, see below; repeatable")
        ->type_name("AT:WHAT")
        ->allow_extra_args(false);
    mCommand->add_option("--script", mScriptPath, "File of events, one a line")->type_name("FILE");
    mCommand->add_option("--latency", mLatency, "Latency behind the output")->type_name("TIME");
    mCommand->add_option("--latency-offset", mLatencyOffset, "Added to it, may be below 0")
        ->type_name("TIME");
    mCommand->add_option("--clock", mClockId, "Id of the clock")
        ->check(CLI::Range(uint32_t{0}, UINT32_MAX))
        ->capture_default_str();
    size_t index = 0;
    for (const PolicyProperty& property : kPolicyProperties) {
        mCommand->add_option(property.option, mPolicy[index++], property.help)
            ->type_name("MS")
            ->check(CLI::Range(0, INT32_MAX));
    }
    mCommand->add_option("--duration", mDuration, "End after this time")->type_name("TIME");
    mCommand
        ->add_option("--max-heard", mMaxHeard,
                     "End with code 4 if sound is heard earlier or later than this, in ms")
        ->type_name("EARLY,LATE");
}

void ReplayCommand::addOutputOptions() {
    mCommand->add_option("--gain", mGain, "Gain of the tunnel stream, 0 to 1 or in dB")
        ->type_name("GAIN")
        ->capture_default_str();
    mCommand
        ->add_option("--beside", mBesides,
                     "Audio file to play in a plain stream of the same mix, with settings as "
                     "'streamproxy mix' takes them; repeatable")
        ->type_name("FILE[@SETTINGS]")
        ->allow_extra_args(false);
    mCommand->add_option("-o,--output", mOutputPath, "The mix: .wav, .flac, .aiff or .caf")
        ->type_name("FILE");
    mCommand->add_option("--svg", mSvgPath, "A picture of the audio lead over time")
        ->type_name("FILE");
    mCommand
        ->add_option("--report", mReportPath, "An HTML page that shows the course of the replay")
        ->type_name("FILE");
    mCommand->add_flag("--summary", mIsSummaryOnly, "No row for each decision");
    CLI::Option* json = mCommand->add_flag("--json", mIsJson, "One JSON document");
    mCommand->add_flag("--csv", mIsCsv, "The decisions as comma-separated rows")->excludes(json);
    mCommand->add_option("--properties", mPropertiesPath, "File of key=value lines to set first")
        ->type_name("FILE");
    mCommand->add_option("--library", mLibraryPath, "The library to load")->type_name("FILE");
    mCommand->add_option("--log", mLogLevel, "The library's messages to show, from this level on")
        ->type_name("LEVEL")
        ->check(CLI::IsMember(logLevels()))
        ->capture_default_str();
    mCommand->add_flag("--realtime", mIsRealTime,
                       "Play by this machine's clock and threads, which takes as long as the film");
    mCommand->add_flag("--quiet", mIsQuiet, "No progress");
}

ExitCode ReplayCommand::run() {
    const ReplaySession::Config config = sessionConfig();
    parseMaxHeard(mMaxHeard);
    setProperties();
    checkOutputs();
    setLogLevel("silent");  // garbage is told of when it is played
    checkBursts();
    setLogLevel(mLogLevel);
    Interrupt::install();
    if (mIsRealTime) {
        return play(config, openBesides());
    }
    ExitCode code = EXIT_OK;
    VirtualMachine::run({}, [&] { code = play(config, openBesides()); });
    return code;
}

void ReplayCommand::setProperties() const {
    if (!mPropertiesPath.empty()) {
        loadProperties(mPropertiesPath);
    }
    for (size_t index = 0; index < std::size(kPolicyProperties); ++index) {
        if (mPolicy[index]) {
            setProperty(kPolicyProperties[index].property, std::to_string(*mPolicy[index]));
        }
    }
}

ReplaySession::Config ReplayCommand::sessionConfig() const {
    ReplaySession::Config config;
    config.writer.format = mFormat;
    config.writer.offsetNs = parseSignedTimeNs(mOffset, "--offset");
    if (!mDuration.empty()) {
        config.writer.maxNs = parseTimeNs(mDuration, "--duration");
        if (config.writer.maxNs == 0) {
            throw ToolError("--duration: leaves nothing to play; leave it out to play to the end",
                            EXIT_USAGE);
        }
    }
    config.clockId = mClockId;
    config.latencyMs = static_cast<unsigned long>(parseTimeNs(mLatency, "--latency") / 1'000'000);
    config.latencyOffsetMs = parseSignedTimeNs(mLatencyOffset, "--latency-offset") / 1'000'000;
    config.driftPpm = ClockEvent::parse("0:drift=" + mDrift, "--drift").driftPpm;
    config.gain = static_cast<float>(parseGain(mGain, "--gain", 1.0));
    if (!mScriptPath.empty()) {
        config.events = ClockEvent::load(mScriptPath);
    }
    for (const std::string& text : mEvents) {
        config.events.push_back(ClockEvent::parse(text, "--event"));
    }
    return config;
}

std::vector<std::unique_ptr<BesidePlayer>> ReplayCommand::openBesides() const {
    std::vector<std::unique_ptr<BesidePlayer>> besides;
    for (const std::string& text : mBesides) {
        besides.push_back(std::make_unique<BesidePlayer>(InputSpec::parse(text), mFormat.rateHz));
    }
    return besides;
}

void ReplayCommand::checkOutputs() const {
    if (!mOutputPath.empty()) {
        AudioWriter::check(mOutputPath, mFormat.rateHz, mFormat.bits);
    }
    OutputPaths paths;
    paths.addOutput("-");  // the report
    for (const std::string& path : {mPath, mScriptPath, mPropertiesPath}) {
        paths.addInput(path);
    }
    for (const std::string& text : mBesides) {
        paths.addInput(InputSpec::parse(text).path);
    }
    for (const std::string& path : {mOutputPath, mSvgPath, mReportPath}) {
        paths.addOutput(path);
    }
    paths.check();
    for (const std::string& path : {mOutputPath, mSvgPath, mReportPath}) {
        if (path.empty()) {
            continue;
        }
        // The picture is written when all is over: its folder had better be there.
        const std::filesystem::path folder = std::filesystem::absolute(path).parent_path();
        if (access(folder.c_str(), W_OK) != 0) {
            throw ToolError(path + ": can't be written: " + strerror(errno) +
                            "; choose another place");
        }
    }
}

void ReplayCommand::checkBursts() const {
    struct NoSink : BurstSink {
        void onGarbage(uint64_t /*offset*/, uint64_t /*byteCount*/) override {}
        void onBurst(const Burst& /*burst*/) override {}
    } sink;
    // It is read twice.
    if (mPath == "-") {
        BurstFile::keepStandardInput();
    } else if (std::filesystem::exists(mPath) && !std::filesystem::is_regular_file(mPath) &&
               !std::filesystem::is_directory(mPath)) {
        throw ToolError(mPath + ": is not a regular file; keep the stream in one and replay that");
    }
    BurstFile file(mPath);
    BurstScanner scanner(sink);
    std::vector<uint8_t> chunk(size_t{1} << 16);
    while (scanner.burstCount() == 0) {
        const size_t byteCount = file.read(chunk.data(), chunk.size());
        if (byteCount == 0) {
            file.failWithoutBursts(scanner);
        }
        scanner.feed(chunk.data(), byteCount);
    }
}

ExitCode ReplayCommand::play(ReplaySession::Config config,
                             const std::vector<std::unique_ptr<BesidePlayer>>& besides) {
    const Library library(mLibraryPath);
    BurstFile file(mPath);
    std::optional<ReportFile> page;
    if (!mReportPath.empty()) {
        page.emplace(mReportPath);
    }
    SyncTrack track;
    ReplayRecorder recorder({.rateHz = mFormat.rateHz,
                             .bits = mFormat.bits,
                             .tunnelChannels = mFormat.channelCount,
                             .clockId = mClockId,
                             .tunnelGain = config.gain,
                             .keepsAudio = page.has_value(),
                             .limit = parseMaxHeard(mMaxHeard)},
                            track);
    config.writer.recorder = &recorder;
    std::unique_ptr<AudioWriter> writer;
    if (!mOutputPath.empty()) {
        writer = std::make_unique<AudioWriter>(mOutputPath, mFormat.rateHz, mFormat.bits);
    }
    SoundCard card(mFormat.rateHz, mFormat.bits, writer.get(), recorder);
    ReplayReport::Figures figures{.path = mPath};
    ReplaySession session(library, file, card, besides, track, config);
    try {
        session.start();
        waitForEnd(session, card, track);
        figures.elapsedNs = session.elapsedNs();
        session.stop(Interrupt::signalNumber() != 0);
        recorder.finish();
        tellFormatDoubt(session);
        figures.byteCount = session.writtenByteCount();
        if (!session.failure().empty() || !card.failure().empty()) {
            throw ToolError(session.failure().empty() ? card.failure() : session.failure());
        }
        if (writer) {
            writer->finish();
        }
    } catch (const ToolError&) {
        session.stop(true);
        if (writer) {
            writer->abandon();
        }
        throw;
    }
    figures.isVirtual = VirtualMachine::isInside();
    figures.playedFrameCount = card.frameCount();
    figures.shortBlockCount = card.shortBlockCount();
    figures.underrunCount = card.underrunCount();
    figures.longestUnderrunNs = card.longestUnderrunNs();
    const SyncBounds bounds = SyncBounds::fromProperties();
    ReplayReport(track, recorder.heard(), session.writer().tally(), bounds, mFormat, figures)
        .print(mIsJson  ? ReplayReport::Form::JSON
               : mIsCsv ? ReplayReport::Form::CSV
                        : ReplayReport::Form::TEXT,
               mIsSummaryOnly);
    if (!mSvgPath.empty()) {
        const std::string name = std::filesystem::path(mPath).filename().string();
        LeadChart(track, bounds, "Audio lead of " + name).write(mSvgPath);
    }
    if (page) {
        page->write(ReplayPage({.track = track,
                                .recorder = recorder,
                                .tally = session.writer().tally(),
                                .faults = session.writer().faults(),
                                .bounds = bounds,
                                .format = mFormat,
                                .figures = figures,
                                .origin = origin(library)})
                        .page()
                        .html());
    }
    return judge(figures, recorder.heard());
}

void ReplayCommand::tellFormatDoubt(const ReplaySession& session) {
    const std::string* doubt = session.writer().formatDoubt();
    if (doubt != nullptr && !mIsDoubtTold) {
        mIsDoubtTold = true;
        printTo(stderr, "streamproxy: {}: {}\n", mPath, *doubt);
    }
}

ExitCode ReplayCommand::judge(const ReplayReport::Figures& figures, const HeardLeads& heard) const {
    if (exitCodeNow() != EXIT_OK) {
        return exitCodeNow();
    }
    // What a busy machine measures judges nothing.
    const std::string busy = ReplayReport::busyText(figures);
    if (!busy.empty()) {
        // The text has it already.
        if (mIsJson || mIsCsv) {
            printTo(stderr, "streamproxy: {}\n", busy);
        }
        return EXIT_BUSY_MACHINE;
    }
    const auto& beyond = heard.beyondLimit();
    if (beyond && !heard.worst()) {
        throw ToolError(mPath + ": no burst was heard whole, so --max-heard can't be judged");
    }
    if (!beyond || !beyond->isAny()) {
        return EXIT_OK;
    }
    printTo(stderr,
            "streamproxy: {}: heard beyond --max-heard {} for {:.3f} s; farthest from 0 is {:+.1f} "
            "ms at {:.3f} s, burst {}\n",
            mPath, mMaxHeard, beyond->earlySec + beyond->lateSec, heard.worst()->leadMs,
            heard.worst()->timeSec, heard.worst()->index);
    return EXIT_BEYOND_LIMIT;
}

RunOrigin ReplayCommand::origin(const Library& library) const {
    return {{"command", mCommandLine},
            {"payload", fmt::format("{} Hz, {} channels, {} bits", mFormat.rateHz,
                                    mFormat.channelCount, mFormat.bits)},
            {"program", "streamproxy " STREAMPROXY_VERSION},
            {"library", "libstreamproxy " + library.version() + ", " + library.file()}};
}

void ReplayCommand::waitForEnd(const ReplaySession& session, const SoundCard& card,
                               const SyncTrack& track) {
    const bool isShown = !mIsQuiet && isatty(STDERR_FILENO) != 0;
    int64_t nextLineNs = RealClock::nowNs();
    while (session.isRunning() && Interrupt::signalNumber() == 0 && card.failure().empty()) {
        std::this_thread::sleep_for(kPollInterval);
        tellFormatDoubt(session);
        if (isShown && RealClock::nowNs() >= nextLineNs) {
            nextLineNs = RealClock::nowNs() + kRewriteNs;
            const SyncDecision latest = track.latest();
            const double leadMs =
                latest.hasClock ? static_cast<double>(latest.leadNs()) / 1e6 : 0.0;
            printTo(stderr, "\rreplaying, {:.1f} s, audio lead {:+.1f} ms   ",
                    static_cast<double>(session.elapsedNs()) / 1e9, leadMs);
            fflush(stderr);
        }
    }
    if (isShown) {
        printTo(stderr, "\r{:>60}\r", "");
    }
}

}  // namespace android
