/** streamproxy: hosts the library from the command line, as an audio HAL does on the device. */
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tools/streamproxy/MixCommand.h"
#include "tools/streamproxy/ToolError.h"
#include "tools/streamproxy/hwsync/HwSyncCommand.h"

namespace {

int run(int argc, char** argv) {
    CLI::App program("Hosts libstreamproxy from the command line");
    program.name("streamproxy");
    program.set_version_flag("--version", "streamproxy " STREAMPROXY_VERSION);
    program.require_subcommand(1);
    android::MixCommand mix(program, android::MixCommand::Kind::MIX);
    android::MixCommand play(program, android::MixCommand::Kind::PLAY);
    android::HwSyncCommand hwsync(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? android::EXIT_OK : android::EXIT_USAGE;
    }
    return hwsync.isChosen() ? hwsync.run() : play.isChosen() ? play.run() : mix.run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const android::ToolError& error) {
        fprintf(stderr, "streamproxy: %s\n", error.what());
        return error.exitCode();
    } catch (const std::exception& error) {
        fprintf(stderr, "streamproxy: %s\n", error.what());
        return android::EXIT_RUNTIME;
    }
}
