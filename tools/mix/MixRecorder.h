#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/course/BlockTrack.h"
#include "tools/course/InputTrack.h"
#include "tools/mix/MixInput.h"

namespace android {

/**
 * Writes down the course of a mix for its report, in bounded memory however long it runs. Times are
 * those of the mix: what is heard first stands at 0, what runs in front of it is left out.
 * Threads: as the tracks say.
 */
class MixRecorder {
public:
    struct Config {
        uint32_t rateHz;
        uint32_t bits;
        int64_t preRollFrames;
    };

    MixRecorder(const std::vector<MixInput*>& inputs, const Config& config);

    /** The time of a frame of the mix, counted with what runs in front. */
    double secondsOf(int64_t mixFrame) const {
        return static_cast<double>(mixFrame - mConfig.preRollFrames) / mConfig.rateHz;
    }
    /** A callback begins. */
    void beginBlock(int64_t blockStart, int64_t frameCount);
    void endBlock();
    /** Frames that go into the output. */
    void heard(const void* frames, int64_t frameCount) { mMix.add(frames, frameCount); }

    InputTrack& input(size_t index) { return *mInputs[index]; }
    const InputTrack& input(size_t index) const { return *mInputs[index]; }
    const BlockTrack& blocks() const { return mBlocks; }
    const Envelope& mix() const { return mMix; }

private:
    const Config mConfig;
    Envelope mMix;
    BlockTrack mBlocks;
    bool mIsInBlock = false;
    std::vector<std::unique_ptr<InputTrack>> mInputs;
};

}  // namespace android
