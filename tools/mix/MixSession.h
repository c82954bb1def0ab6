#pragma once

#include <memory>
#include <vector>

#include "tools/mix/FeedBoard.h"
#include "tools/mix/Feeder.h"
#include "tools/mix/MixCycle.h"

namespace android {

/**
 * One mix from the library's side: pipeline, streams, output and feeders, in the order that starts
 * every input at frame 0 of the mix.
 *
 * Without an output no cycle runs, so all streams are filled first and the output comes last. The
 * mixing configuration is there before the streams, by an output that hears nothing and goes
 * again: streams that are configured once keep the gains that are set on them before the start.
 * Threads: one (the owner); the feeders and the mixer thread work inside.
 */
class MixSession {
public:
    struct Config {
        uint32_t rateHz;
        uint32_t bits;
        bool isRealTime;   // paced by the clock
        bool isHeardLive;  // by the clock or a device
        int64_t preRollFrames;
        MixRecorder* recorder = nullptr;  // for the report
        SumCheck* sums = nullptr;         // of a 16-bit mix
        Overload* overload = nullptr;     // of a 32-bit mix
    };

    MixSession(const Library& library, const std::vector<MixInput*>& inputs, MixOutput& output,
               const Config& config);
    /** Ends the mix if it runs, and gives everything back to the library. */
    ~MixSession();
    MixSession(const MixSession&) = delete;
    MixSession& operator=(const MixSession&) = delete;

    /** Creates and fills the streams, then lets the library mix. Throws ToolError. */
    void start();
    /** Stops feeders and mixing; counts stay readable. */
    void stop();
    /** Without a block for a while, although every input is fed. */
    void demandMore() { mCycle.demandMore(); }
    /** Writes the library's own account of its state. */
    void dump(int fd) const;

    FeedBoard& board() { return mBoard; }
    const FeedBoard& board() const { return mBoard; }
    const MixCycle& cycle() const { return mCycle; }

private:
    void fixMixConfig();
    void createStream(MixInput& input) const;
    void registerOutput();

    const Library& mLibrary;
    const std::vector<MixInput*> mInputs;
    const Config mConfig;
    audio_proxy_config_t mMixConfig{};
    audio_proxy_pipeline_t* mPipeline = nullptr;
    FeedBoard mBoard;
    MixCycle mCycle;
    std::vector<std::unique_ptr<Feeder>> mFeeders;
    bool mHasOutput = false;
};

}  // namespace android
