#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/audio/PcmFormat.h"
#include "tools/process/ToolError.h"

namespace android {

/** streamproxy hwsync inspect FILE: lists what a burst stream holds. */
class InspectCommand {
public:
    explicit InspectCommand(CLI::App& parent);

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run() const;

private:
    CLI::App* mCommand;
    std::string mPath;
    std::string mTolerance = "1ms";
    PcmFormat mFormat;
    bool mIsSummaryOnly = false;
    bool mIsJson = false;
    bool mIsCsv = false;
};

}  // namespace android
