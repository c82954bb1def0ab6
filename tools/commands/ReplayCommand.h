#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio/AudioWriter.h"
#include "tools/audio/PcmFormat.h"
#include "tools/process/ToolError.h"
#include "tools/replay/ReplaySession.h"
#include "tools/report/ReplayReport.h"
#include "tools/report/RunOrigin.h"

namespace android {

/** streamproxy hwsync replay FILE: plays a burst stream against the software clock. */
class ReplayCommand {
public:
    /** `commandLine` goes into a report. */
    ReplayCommand(CLI::App& parent, const std::string& commandLine);

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run();

private:
    void addClockOptions();
    void addOutputOptions();
    void setProperties() const;
    ReplaySession::Config sessionConfig() const;
    std::vector<std::unique_ptr<BesidePlayer>> openBesides() const;
    void checkOutputs() const;
    /** Throws ToolError when the file holds no burst. */
    void checkBursts() const;
    ExitCode play(ReplaySession::Config config,
                  const std::vector<std::unique_ptr<BesidePlayer>>& besides);
    void waitForEnd(const ReplaySession& session, const SoundCard& card, const SyncTrack& track);
    /** Once, as soon as it is known. */
    void tellFormatDoubt(const ReplaySession& session);

    ExitCode judge(const ReplayReport::Figures& figures, const HeardLeads& heard) const;
    RunOrigin origin(const Library& library) const;

    CLI::App* mCommand;
    const std::string mCommandLine;
    std::string mPath;
    PcmFormat mFormat;
    std::string mOffset = "0";
    std::string mDrift = "0";
    std::vector<std::string> mEvents;
    std::string mScriptPath;
    std::string mLatency = "0";
    std::string mLatencyOffset = "0";
    std::string mDuration;  // empty: to the end
    std::string mMaxHeard;  // empty: any
    uint32_t mClockId = 1;
    std::optional<int> mPolicy[4];  // ms; empty: as the properties say
    std::string mGain = "1";
    std::vector<std::string> mBesides;
    std::string mOutputPath;
    std::string mSvgPath;
    std::string mReportPath;
    std::string mLibraryPath;
    std::string mPropertiesPath;
    std::string mLogLevel = "error";
    bool mIsSummaryOnly = false;
    bool mIsJson = false;
    bool mIsCsv = false;
    bool mIsQuiet = false;
    bool mIsRealTime = false;
    bool mIsDoubtTold = false;
};

}  // namespace android
