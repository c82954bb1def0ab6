#pragma once

#include <CLI/CLI.hpp>

#include "tools/commands/InspectCommand.h"
#include "tools/commands/PackCommand.h"
#include "tools/commands/ReplayCommand.h"
#include "tools/process/ToolError.h"

namespace android {

/** streamproxy hwsync pack | inspect | replay: burst streams and their synchronisation. */
class HwSyncCommand {
public:
    /** `commandLine` goes into reports. */
    HwSyncCommand(CLI::App& program, const std::string& commandLine)
        : mCommand(program.add_subcommand("hwsync", "Make, inspect and replay burst streams")),
          mPack(*mCommand),
          mInspect(*mCommand),
          mReplay(*mCommand, commandLine) {
        mCommand->require_subcommand(1);
        mCommand->footer(
            "Examples:\n"
            "  streamproxy hwsync pack music.ogg -o stream.hws\n"
            "  streamproxy hwsync inspect stream.hws --rate 44100 --summary\n"
            "  streamproxy hwsync replay stream.hws --rate 44100 --event 5s:jump=+400ms -o "
            "out.wav\n"
            "\n"
            "Exit codes: 0 done; 1 a file, the library or the disk failed; 2 wrong usage;\n"
            "130 Ctrl-C and 143 SIGTERM.");
    }

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run() {
        return mPack.isChosen()      ? mPack.run()
               : mInspect.isChosen() ? mInspect.run()
                                     : mReplay.run();
    }

private:
    CLI::App* mCommand;
    PackCommand mPack;
    InspectCommand mInspect;
    ReplayCommand mReplay;
};

}  // namespace android
