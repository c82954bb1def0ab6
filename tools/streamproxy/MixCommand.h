#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/streamproxy/MixInput.h"
#include "tools/streamproxy/MixSession.h"
#include "tools/streamproxy/ToolError.h"

namespace android {

class MixReport;

/** streamproxy mix INPUT... -o OUTPUT: mixes files through the library into a file. */
class MixCommand {
public:
    /** Adds the subcommand with its options to the program. */
    explicit MixCommand(CLI::App& program);

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run();

private:
    void openInputs();
    void chooseRate();
    void checkOutput() const;
    void makeInputs();
    ExitCode mix(const Library& library);
    FeedBoard::State waitForEnd(MixSession& session, MixReport& report) const;

    CLI::App* mCommand;
    // Options.
    std::vector<std::string> mInputTexts;
    std::string mOutputPath;
    std::string mLibraryPath;
    std::string mPropertiesPath;
    std::string mLogLevel = "warn";
    uint32_t mRateHz = 0;  // 0: the inputs' own, if they share one
    uint32_t mBits = 16;
    int64_t mWriteFrames = 0;
    int64_t mLoopCount = 1;
    bool mIsNative = false;
    bool mIsRealTime = false;
    bool mIsDumping = false;
    bool mIsQuiet = false;
    bool mAllowTruncated = false;
    // What they lead to.
    std::vector<InputSpec> mSpecs;
    std::vector<std::unique_ptr<AudioReader>> mReaders;
    std::vector<std::unique_ptr<MixInput>> mInputs;
    int64_t mPreRollFrames = 0;
};

}  // namespace android
