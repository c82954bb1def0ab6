/** streamproxy: hosts the library from the command line, as an audio HAL does on the device. */
#include <CLI/CLI.hpp>
#include <exception>

#include "tools/commands/HwSyncCommand.h"
#include "tools/commands/MixCommand.h"
#include "tools/host/Library.h"
#include "tools/host/LogSink.h"
#include "tools/process/CommandLine.h"
#include "tools/process/ToolError.h"
#include "tools/text/PrintTo.h"
#include "tools/text/Utf8.h"

namespace {

constexpr const char* kFooter =
    "Every subcommand has a --help and a manual page of its own, such as streamproxy-mix(1).\n"
    "\n"
    "Examples:\n"
    "  streamproxy mix music.ogg@gain=-6dB voice.wav@start=3 -o out.wav\n"
    "  streamproxy play music.ogg\n"
    "  streamproxy hwsync pack music.ogg -o stream.hws\n"
    "\n"
    "Exit codes: 0 done; 1 a file, the library, the sound device or the disk failed;\n"
    "2 wrong usage; 130 Ctrl-C and 143 SIGTERM.";

/** Of the program, and of the library that it loads unless --library names another. */
std::string versions() {
    std::string text = "streamproxy " STREAMPROXY_VERSION "\nlibstreamproxy ";
    try {
        const android::Library library("");
        text += library.version() + ", " + library.file();
    } catch (const android::ToolError& error) {
        text += std::string("unknown: ") + error.what();
    }
    return text;
}

/** What is wrong, and which help has what would be right. */
std::string usageMessage(const CLI::App* program, const CLI::Error& error) {
    std::string command = program->get_name();
    for (const CLI::App* app = program; !app->get_subcommands().empty();) {
        app = app->get_subcommands().front();
        command += " " + app->get_name();
    }
    // A word in a subcommand's place also leaves the subcommand missing, which would be told.
    const std::vector<std::string> unknown = program->remaining(true);
    const std::string fault =
        unknown.empty() ? error.what() : "'" + unknown.front() + "' is not known here";
    return "streamproxy: " + android::terminalText(fault) + "; see '" + command + " --help'\n";
}

/** However the command ends, the counts of its log come before the error. */
struct LogEnd {
    ~LogEnd() { android::tellLogRepeats(); }
};

int run(int argc, char** argv) {
    CLI::App program("Hosts libstreamproxy from the command line");
    program.name("streamproxy");
    program.set_version_flag("--version", versions, "Versions of the program and the library");
    program.failure_message(usageMessage);
    program.footer(kFooter);
    program.require_subcommand(1);
    android::MixCommand mix(program, android::MixCommand::Kind::MIX);
    android::MixCommand play(program, android::MixCommand::Kind::PLAY);
    android::HwSyncCommand hwsync(program, android::shellText(argc, argv));
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? android::EXIT_OK : android::EXIT_USAGE;
    }
    const LogEnd logEnd;
    return hwsync.isChosen() ? hwsync.run() : play.isChosen() ? play.run() : mix.run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const android::ToolError& error) {
        android::printTo(stderr, "streamproxy: {}\n", android::terminalText(error.what()));
        return error.exitCode();
    } catch (const std::exception& error) {
        android::printTo(stderr, "streamproxy: {}\n", android::terminalText(error.what()));
        return android::EXIT_RUNTIME;
    }
}
