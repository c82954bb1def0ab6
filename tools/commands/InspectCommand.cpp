#include "tools/commands/InspectCommand.h"

#include <vector>

#include "tools/burst/BurstFile.h"
#include "tools/burst/BurstScanner.h"
#include "tools/host/LogSink.h"
#include "tools/report/InspectReport.h"
#include "tools/text/TimeText.h"

namespace android {

namespace {

constexpr size_t kChunkByteCount = size_t{256} << 10;

constexpr const char* kFooter =
    "One row a burst: where its header lies, its mode, payload and timestamp, the step from the\n"
    "timestamp before and what that payload lasts. Runs of garbage have rows of their own. The\n"
    "stream does not say its rate and format: name them for steps and durations to be right.\n"
    "\n"
    "Examples:\n"
    "  streamproxy hwsync inspect stream.hws\n"
    "  streamproxy hwsync inspect stream.hws --rate 44100 --summary\n"
    "  streamproxy hwsync inspect stream.hws --summary --json\n"
    "\n"
    "Exit codes: 0 done, however irregular the stream; 1 the file can't be read or holds no\n"
    "burst; 2 wrong usage; 130 Ctrl-C and 143 SIGTERM.";

}  // namespace

InspectCommand::InspectCommand(CLI::App& parent)
    : mCommand(parent.add_subcommand("inspect", "List what a burst stream holds")) {
    mCommand->add_option("FILE", mPath, "The burst stream, or - for standard input")
        ->type_name("")
        ->required();
    mFormat.addOptions(*mCommand);
    mCommand
        ->add_option("--tolerance", mTolerance,
                     "How far a timestamp's step may be off the payload's duration")
        ->type_name("TIME")
        ->capture_default_str();
    mCommand->add_flag("--summary", mIsSummaryOnly, "The counts alone");
    CLI::Option* json = mCommand->add_flag("--json", mIsJson, "One JSON document");
    mCommand->add_flag("--csv", mIsCsv, "Comma-separated rows; with --summary, the counts")
        ->excludes(json);
    mCommand->footer(kFooter);
}

ExitCode InspectCommand::run() const {
    const int64_t toleranceNs = parseTimeNs(mTolerance, "--tolerance");
    setLogLevel("silent");  // the rows say where the garbage is
    BurstFile file(mPath);
    BurstTally tally(mFormat, toleranceNs);
    InspectReport report(tally, {.form = mIsJson  ? InspectReport::Form::JSON
                                         : mIsCsv ? InspectReport::Form::CSV
                                                  : InspectReport::Form::TEXT,
                                 .isSummaryOnly = mIsSummaryOnly,
                                 .path = mPath});
    BurstScanner scanner(report);
    std::vector<uint8_t> chunk(kChunkByteCount);
    while (const size_t byteCount = file.read(chunk.data(), chunk.size())) {
        scanner.feed(chunk.data(), byteCount);
    }
    scanner.finish();
    if (scanner.burstCount() == 0) {
        file.failWithoutBursts(scanner);
    }
    report.finish(scanner);
    return EXIT_OK;
}

}  // namespace android
