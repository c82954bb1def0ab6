#include "tools/commands/MixCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>

#include "tools/audio/OpenInput.h"
#include "tools/audio/StreamConfig.h"
#include "tools/host/LogSink.h"
#include "tools/host/Properties.h"
#include "tools/mix/MixLevels.h"
#include "tools/mix/PreRoll.h"
#include "tools/process/Interrupt.h"
#include "tools/process/OutputPaths.h"
#include "tools/report/MixJson.h"
#include "tools/report/MixPage.h"
#include "tools/report/MixReport.h"
#include "tools/report/ReportFile.h"

namespace android {

namespace {

constexpr uint32_t kDefaultRateHz = 48000;
constexpr std::chrono::milliseconds kDryLimit{200};  // then the inputs may want more
constexpr std::chrono::seconds kStallLimit{5};

constexpr const char* kInputHelp =
    "Audio files, or - for standard input, each with settings behind an '@' if wanted: "
    " FILE@gain=-6dB,balance=-0.3,start=2.5,length=20,loop=3,volume=4s:0.2,volume=8s:1";

constexpr const char* kPipeHelp =
    "Standard input with settings, written as one word: "
    "-@rate=44100,channels=1,format=s32,gain=-6dB";

constexpr const char* kSettingsHelp =
    "Settings of an input:\n"
    "  gain=G      linear 0 to 15.8, or dB up to +24dB\n"
    "  balance=B   -1 (left only) to 1 (right only)\n"
    "  start=T     silence in front of it: 2.5, 2.5s, 250ms or 1:30\n"
    "  from=T      begin inside the file\n"
    "  length=T    end after this much\n"
    "  loop=N      play it N times\n"
    "  volume=T:G  from time T of the mix on, play at gain G (a short ramp leads there)\n"
    "  downmix=M   itu: 3 to 8 channels become stereo; off (default): the first two are heard\n"
    "Standard input (-) is WAV, FLAC or Ogg, or raw samples, which have these too:\n"
    "  rate=HZ     default 48000\n"
    "  channels=N  default 2\n"
    "  format=F    s16 (default), s24, s32 or f32, little-endian\n"
    "\n"
    "Examples:\n";

constexpr const char* kMixExamples =
    "  streamproxy mix music.ogg@gain=-6dB voice.wav@start=3 -o out.wav\n"
    "  streamproxy mix music.flac@volume=3s:0.2,volume=8s:1 voice.wav@start=3 --rate 44100 -o "
    "o.flac\n"
    "  streamproxy mix music.ogg voice.wav -o out.wav --json\n";

constexpr const char* kPlayExamples =
    "  streamproxy play music.ogg@gain=-6dB voice.wav@start=3\n"
    "  sox song.flac -t wav - reverb | streamproxy play - voice.wav@start=3\n";

constexpr const char* kExitCodes =
    "\n"
    "Exit codes: 0 done; 1 a file, the library, the sound device or the disk failed;\n"
    "2 wrong usage; 130 Ctrl-C and 143 SIGTERM, with what was mixed until then in a valid file.";

}  // namespace

MixCommand::MixCommand(CLI::App& program, Kind kind)
    : mCommand(kind == Kind::MIX
                   ? program.add_subcommand("mix", "Mix audio files into one")
                   : program.add_subcommand("play", "Mix audio files to a sound device")),
      mIsPlaying(kind == Kind::PLAY) {
    addInputOptions();
    addOutputOptions(kind);
    addRunOptions();
    mCommand->footer(std::string(kSettingsHelp) +
                     (kind == Kind::MIX ? kMixExamples : kPlayExamples) + kExitCodes);
}

void MixCommand::addInputOptions() {
    mCommand->add_option("INPUT", mInputTexts, kInputHelp)->type_name("");
    // A word that begins with '-' is an option to the parser: this one.
    mCommand->add_option("-@", mPipeSettings, kPipeHelp)
        ->type_name("SETTINGS")
        ->allow_extra_args(false);
    mCommand->add_option("--loop", mLoopCount, "Play every input this many times")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    mCommand->add_flag("--native", mIsNative,
                       "Hand every file over in its own channels and sample format, although the "
                       "library then shortens blocks where it also converts the rate");
    mCommand->add_flag("--allow-truncated", mAllowTruncated, "Take what a damaged file still has");
    mCommand
        ->add_option("--write-frames", mWriteFrames,
                     "Frames in one write (default: 10 ms, or a block of a file at once)")
        ->check(CLI::Range(1, 65536));
}

void MixCommand::addOutputOptions(Kind kind) {
    mCommand
        ->add_option("-o,--output", mOutputPath,
                     "The mix: .wav, .flac, .aiff or .caf; - is WAV on standard output")
        ->type_name("FILE");
    mCommand
        ->add_option("--report", mReportPath,
                     "An HTML page that shows the course of the mix and of each input")
        ->type_name("FILE");
    CLI::Option* play = nullptr;
    if (kind == Kind::MIX) {
        play = mCommand->add_flag("--play", mIsPlaying, "Play the mix, with or without -o");
    }
    CLI::Option* device =
        mCommand->add_option("--device", mDeviceName, "ALSA device to play on, as in 'aplay -L'")
            ->type_name("NAME")
            ->capture_default_str();
    CLI::Option* buffer =
        mCommand->add_option("--device-buffer", mDeviceBufferMs, "What the device buffers, in ms")
            ->check(CLI::Range(20, 5000))
            ->capture_default_str();
    if (play != nullptr) {
        device->needs(play);
        buffer->needs(play);
    }
    mCommand
        ->add_option("--rate", mRateHz,
                     "Rate of the mix in Hz (default: the inputs' if they share one, else 48000)")
        ->check(CLI::Range(kMinRateHz, kMaxRateHz));
    mCommand
        ->add_option("--format", mFormat,
                     "Samples of the mix: 16 or 32 bits, or f32, which keeps what lies above full "
                     "scale")
        ->check(CLI::IsMember({"16", "32", "f32"}))
        ->capture_default_str();
    mCommand
        ->add_option("--headroom", mHeadroomDb,
                     "Lower every input by this many dB, so that their sum does not overload")
        ->type_name("DB")
        ->check(CLI::Range(0.0, 60.0))
        ->check([](const std::string& text) {  // nan is in every range
            return std::isnan(strtod(text.c_str(), nullptr)) ? text + " is not a number" : "";
        });
    CLI::Option* normalize =
        mCommand->add_flag("--normalize", mIsNormalizing,
                           "Mix with 32 bits, then bring the peak of the mix to -1 dBFS");
    if (play != nullptr) {
        normalize->excludes(play);
    }
    mCommand->add_flag("--realtime", mIsRealTime,
                       "Take a second per second, as a sound card does by itself");
}

void MixCommand::addRunOptions() {
    mCommand->add_option("--properties", mPropertiesPath, "File of key=value lines to set first")
        ->type_name("FILE");
    mCommand->add_option("--library", mLibraryPath, "The library to load")->type_name("FILE");
    mCommand->add_option("--log", mLogLevel, "The library's messages to show, from this level on")
        ->type_name("LEVEL")
        ->check(CLI::IsMember(logLevels()))
        ->capture_default_str();
    CLI::Option* dump =
        mCommand->add_flag("--dump", mIsDumping, "Print the library's state once it mixes");
    mCommand->add_flag("--json", mIsJson, "The summary as one JSON document on standard output")
        ->excludes(dump);
    mCommand->add_flag("--quiet", mIsQuiet, "No progress and no summary");
}

ExitCode MixCommand::run() {
    if (mOutputPath.empty() && !mIsPlaying) {
        throw ToolError("--output is required, or --play; name the mix with -o", EXIT_USAGE);
    }
    if (mIsNormalizing && mIsPlaying) {
        throw ToolError(
            "--normalize: the peak is known at the end, too late to play the mix; "
            "mix into a file and play that",
            EXIT_USAGE);
    }
    openInputs();
    chooseRate();
    checkOutputs();
    if (!mPropertiesPath.empty()) {
        loadProperties(mPropertiesPath);
    }
    makeInputs();
    setLogLevel(mLogLevel);
    const Library library(mLibraryPath);
    return mix(library);
}

void MixCommand::openInputs() {
    for (const std::string& text : mInputTexts) {
        mSpecs.push_back(InputSpec::parse(text));
    }
    for (const std::string& settings : mPipeSettings) {
        mSpecs.push_back(InputSpec::parse("-@" + settings));
    }
    if (mSpecs.empty()) {
        throw ToolError("no INPUT; name an audio file, or - for standard input", EXIT_USAGE);
    }
    if (std::count_if(mSpecs.begin(), mSpecs.end(), std::mem_fn(&InputSpec::isPipe)) > 1) {
        throw ToolError("-: given twice, but there is one standard input; name the other a file",
                        EXIT_USAGE);
    }
    for (InputSpec& spec : mSpecs) {
        spec.trim = static_cast<float>(std::pow(10.0, -mHeadroomDb / 20.0));
        const int64_t loopCount = spec.loopCount > 0 ? spec.loopCount : mLoopCount;
        if (spec.isPipe() && loopCount > 1) {
            throw ToolError("-: a pipe can't be played again; give it loop=1", EXIT_USAGE);
        }
        mReaders.push_back(openInput(spec, mAllowTruncated, PipeUse::STREAMED));
    }
}

void MixCommand::chooseRate() {
    if (mRateHz != 0) {
        return;
    }
    const uint32_t firstHz = mReaders.front()->rateHz();
    const bool isShared = std::all_of(mReaders.begin(), mReaders.end(), [&](const auto& reader) {
        return reader->rateHz() == firstHz;
    });
    mRateHz = isShared ? firstHz : kDefaultRateHz;
}

void MixCommand::checkOutputs() const {
    if (!mOutputPath.empty()) {
        AudioWriter::check(mOutputPath, mRateHz, target().bits, target().isFloat);
    }
    OutputPaths paths;
    paths.addOutput(mOutputPath);
    paths.addOutput(mReportPath);
    paths.addOutput(mIsJson || mIsDumping ? "-" : "");
    paths.addInput(mPropertiesPath);
    for (const InputSpec& spec : mSpecs) {
        paths.addInput(spec.isPipe() ? std::string() : spec.path);
    }
    paths.check();
}

void MixCommand::makeInputs() {
    std::vector<Handover> handovers;
    for (size_t index = 0; index < mReaders.size(); ++index) {
        const auto& reader = mReaders[index];
        // In a mix of 16 bits, what a gain lifts above full scale is held, and counted, here.
        const bool fits16Bits =
            reader->fits16Bits() || (target().bits == 16 && mSpecs[index].boost > 1.0f);
        handovers.emplace_back(Handover::Source{.rateHz = reader->rateHz(),
                                                .channelCount = reader->channelCount(),
                                                .fits16Bits = fits16Bits},
                               mRateHz,
                               Handover::Wishes{.isNative = mIsNative,
                                                .bufferFrames = bufferFramesProperty(),
                                                .writeFrames = mWriteFrames});
    }
    // Gains walk over a buffer's length. Where one starts below full, all inputs get silence to
    // walk over in front, which is mixed and not written.
    const bool hasGain = std::any_of(mSpecs.begin(), mSpecs.end(), [](const InputSpec& spec) {
        return spec.gainAt(0.0) * spec.trim < 1.0f || spec.balance != 0.0f;
    });
    int64_t longestRamp = 0;
    for (const Handover& handover : handovers) {
        longestRamp = std::max(longestRamp, handover.bufferFrames);
    }
    const int64_t block = blockFrames(mRateHz);
    const PreRoll preRoll(handovers, hasGain ? (longestRamp / block + 2) * block : 0);
    mPreRollFrames = preRoll.frameCount();

    for (size_t index = 0; index < mReaders.size(); ++index) {
        const InputSpec& spec = mSpecs[index];
        const double rateHz = mReaders[index]->rateHz();
        const FrameSource::Extent extent{
            .silentFrames = preRoll.silentFrames(handovers[index], spec.startSec),
            .loopCount = spec.loopCount > 0 ? spec.loopCount : mLoopCount,
            .maxFrames = spec.lengthSec < 0 ? -1 : std::llround(spec.lengthSec * rateHz)};
        mInputs.push_back(
            std::make_unique<MixInput>(spec, std::move(mReaders[index]), handovers[index], extent));
    }
}

MixTarget MixCommand::target() const {
    return {.path = mOutputPath,
            .device = mIsPlaying ? mDeviceName : std::string(),
            .rateHz = mRateHz,
            .bits = mFormat == "16" ? 16u : 32u,
            .isFloat = mFormat == "f32",
            .isNormalized = mIsNormalizing,
            .headroomDb = mHeadroomDb,
            .preRollFrames = mPreRollFrames};
}

ExitCode MixCommand::mix(const Library& library) {
    Interrupt::install();  // before there are files to be left behind
    const MixTarget target = this->target();
    std::vector<MixInput*> inputs;
    for (const auto& input : mInputs) {
        inputs.push_back(input.get());
    }
    // A device that can't be had leaves no file behind, and does not empty one.
    std::unique_ptr<PlayDevice> device = openDevice();
    std::optional<ReportFile> page;
    if (!mReportPath.empty()) {
        page.emplace(mReportPath);
    }
    std::unique_ptr<AudioWriter> file;
    if (!mOutputPath.empty()) {
        file = std::make_unique<AudioWriter>(mOutputPath, mRateHz, target.bits, target.isFloat);
    }
    MixOutput output(std::move(file), std::move(device), target.bits);
    if (target.isNormalized) {
        output.normalize(std::make_unique<MixStore>(mOutputPath), MixTarget::kNormalPeakDbfs);
    }
    // Streams whose chain gives less than it is asked for come first: what stands behind them in
    // the mix is then asked for no more than that, and loses nothing.
    std::vector<MixInput*> ordered = inputs;
    std::stable_partition(ordered.begin(), ordered.end(),
                          [](const MixInput* input) { return input->handover.deliversShort(); });
    std::optional<MixRecorder> recorder;
    if (page) {
        recorder.emplace(ordered, MixRecorder::Config{.rateHz = mRateHz,
                                                      .bits = target.mixBits(),
                                                      .preRollFrames = mPreRollFrames});
    }
    MixLevels levels(ordered, target);
    MixSession session(library, ordered, output,
                       {.rateHz = mRateHz,
                        .bits = target.mixBits(),
                        .isRealTime = mIsRealTime,
                        .isHeardLive = mIsRealTime || mIsPlaying,
                        .preRollFrames = mPreRollFrames,
                        .recorder = recorder ? &*recorder : nullptr,
                        .sums = levels.sums(),
                        .overload = levels.wideOverload()});
    MixReport report(session, ordered, output, levels, target, mIsQuiet, mIsJson);
    const auto begin = std::chrono::steady_clock::now();
    try {
        session.start();
        if (mIsDumping) {
            session.dump(STDOUT_FILENO);
        }
        const FeedBoard::State state = waitForEnd(session, report);
        session.stop();
        if (state == FeedBoard::State::FAILED) {
            throw ToolError(session.board().failure());
        }
        tellLogRepeats();
        output.finish();
    } catch (const ToolError&) {
        session.stop();
        output.abandon();
        report.clearLine();
        throw;
    }
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    report.summary();
    report.warnings();
    if (mIsJson) {
        MixJson(session, ordered, output, levels, target).print(elapsed);
    }
    if (page) {
        const std::string name = mOutputPath.empty()
                                     ? "played on " + mDeviceName
                                     : std::filesystem::path(mOutputPath).filename().string();
        page->write(
            MixPage(session, ordered, *recorder, output, levels, name, mRateHz).page().html());
    }
    const int signalNumber = Interrupt::signalNumber();
    return signalNumber == 0        ? EXIT_OK
           : signalNumber == SIGINT ? EXIT_INTERRUPTED
                                    : EXIT_TERMINATED;
}

std::unique_ptr<PlayDevice> MixCommand::openDevice() const {
    return mIsPlaying ? PlayDevice::open({.name = mDeviceName,
                                          .rateHz = mRateHz,
                                          .bits = target().bits,
                                          .bufferMs = mDeviceBufferMs})
                      : nullptr;
}

FeedBoard::State MixCommand::waitForEnd(MixSession& session, MixReport& report) const {
    int64_t lastBlocks = -1;
    auto lastChange = std::chrono::steady_clock::now();
    bool hasDemanded = false;  // since the last block
    for (;;) {
        const FeedBoard::State state = session.board().waitForEnd(std::chrono::milliseconds(50));
        if (state != FeedBoard::State::RUNNING || Interrupt::signalNumber() != 0) {
            return state;
        }
        report.progress();
        const auto now = std::chrono::steady_clock::now();
        const int64_t blocks = session.cycle().deliveredCount();
        if (blocks != lastBlocks || !(hasDemanded || session.board().isFed())) {
            lastBlocks = blocks;
            lastChange = now;
            hasDemanded = false;
        } else if (now - lastChange > kDryLimit && !hasDemanded) {
            session.demandMore();
            hasDemanded = true;
        } else if (now - lastChange > kStallLimit) {
            throw ToolError(
                fmt::format("the library has delivered nothing for {} s although every input is "
                            "fed; see its log with --log debug",
                            kStallLimit.count()));
        }
    }
}

}  // namespace android
