#pragma once

#include <CLI/CLI.hpp>

#include "tools/streamproxy/ToolError.h"
#include "tools/streamproxy/hwsync/InspectCommand.h"
#include "tools/streamproxy/hwsync/PackCommand.h"
#include "tools/streamproxy/hwsync/ReplayCommand.h"

namespace android {

/** streamproxy hwsync pack | inspect | replay: burst streams and their synchronisation. */
class HwSyncCommand {
public:
    explicit HwSyncCommand(CLI::App& program)
        : mCommand(program.add_subcommand("hwsync", "Make, inspect and replay burst streams")),
          mPack(*mCommand),
          mInspect(*mCommand),
          mReplay(*mCommand) {
        mCommand->require_subcommand(1);
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
