#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/InputSpec.h"
#include "tools/burst/BurstWriter.h"
#include "tools/burst/PackPlan.h"
#include "tools/process/ToolError.h"

namespace android {

/** streamproxy hwsync pack AUDIO -o FILE: makes a burst stream from an audio file. */
class PackCommand {
public:
    explicit PackCommand(CLI::App& parent);

    bool isChosen() const { return mCommand->parsed(); }
    /** The exit code; throws ToolError. */
    ExitCode run() const;

private:
    InputSpec inputSpec() const;
    PackPlan::Config planConfig(const AudioInput& reader) const;
    void pack(AudioInput& reader, const PackPlan& plan, BurstWriter& writer) const;
    void report(const AudioInput& reader, const PackPlan& plan, const BurstWriter& writer) const;

    CLI::App* mCommand;
    std::string mAudioPath;
    std::string mOutputPath;
    std::string mBurst = "20ms";
    int64_t mBurstFrameCount = 0;  // 0: as mBurst says
    std::string mFirstPts = "0";
    std::string mJitter = "0";
    std::string mLength;  // empty: all
    std::vector<std::string> mGaps;
    std::vector<std::string> mFreeRuns;
    std::vector<std::string> mFaults;
    uint32_t mExtensionByteCount = 0;
    uint64_t mSeed = 1;
    bool mIsDownmixed = false;
    bool mAllowTruncated = false;
    bool mIsQuiet = false;
};

}  // namespace android
