#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/mix/MixInput.h"
#include "tools/mix/MixSession.h"
#include "tools/mix/MixTarget.h"
#include "tools/process/ToolError.h"

namespace android {

class MixReport;

/** streamproxy mix and play: mix inputs through the library, into a file, to a sound device. */
class MixCommand {
public:
    enum class Kind { MIX, PLAY };  // play is mix --play, with no need of a file

    /** Adds the subcommand with its options to the program. */
    MixCommand(CLI::App& program, Kind kind);

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run();

private:
    void addInputOptions();
    void addOutputOptions(Kind kind);
    void addRunOptions();
    void openInputs();
    void chooseRate();
    void checkOutputs() const;
    void makeInputs();
    MixTarget target() const;
    ExitCode mix(const Library& library);
    std::unique_ptr<PlayDevice> openDevice() const;
    FeedBoard::State waitForEnd(MixSession& session, MixReport& report) const;

    CLI::App* mCommand;
    // Options.
    std::vector<std::string> mInputTexts;
    std::vector<std::string> mPipeSettings;
    std::string mOutputPath;
    std::string mReportPath;
    std::string mDeviceName = "default";
    uint32_t mDeviceBufferMs = 200;
    std::string mLibraryPath;
    std::string mPropertiesPath;
    std::string mLogLevel = "warn";
    uint32_t mRateHz = 0;  // 0: the inputs' own, if they share one
    std::string mFormat = "16";
    double mHeadroomDb = 0.0;
    int64_t mWriteFrames = 0;
    int64_t mLoopCount = 1;
    bool mIsPlaying = false;
    bool mIsNative = false;
    bool mIsRealTime = false;
    bool mIsDumping = false;
    bool mIsQuiet = false;
    bool mIsJson = false;
    bool mIsNormalizing = false;
    bool mAllowTruncated = false;
    // What they lead to.
    std::vector<InputSpec> mSpecs;
    std::vector<std::unique_ptr<AudioInput>> mReaders;
    std::vector<std::unique_ptr<MixInput>> mInputs;
    int64_t mPreRollFrames = 0;  // known with the inputs
};

}  // namespace android
