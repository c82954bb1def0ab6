#pragma once

#include <cstdint>
#include <vector>

#include "tools/audio/Handover.h"

namespace android {

/**
 * Who made blocks short, and who lost audio in them.
 *
 * The library asks its streams in turn for a block, each for no more than the one before gave, and
 * mixes as much as the last one gave. A stage in front of a converter that lowers the rate takes
 * what is asked for as frames of its own rate, so less comes out; that can be foretold.
 * Threads: add() on the mixer's; read it when no more is mixed.
 */
class BlockLoss {
public:
    /** Inputs in the order of their streams; they outlive this. */
    BlockLoss(std::vector<const Handover*> inputs, int64_t blockFrames);

    enum class State { CLOSED, PADDING, PLAYING };  // nothing, silence or audio is taken

    /** A block of fewer frames, and what the inputs gave to it. */
    void add(const std::vector<State>& states, int64_t frameCount);

    /** Blocks that the input shortened; where several could have, each counts. */
    int64_t shortenedCount(size_t index) const { return mVoices[index].shortenedCount; }
    /** At most this many of its own frames were taken and not mixed. */
    int64_t maxLostFrames(size_t index) const;

private:
    struct Voice {
        const Handover* handover;
        int64_t shortenedCount = 0;
        int64_t lostFrames = 0;   // of the mix's rate
        int64_t givenFrames = 0;  // in the block that is looked at
        bool isShortening = false;
    };

    int64_t foretell(const std::vector<State>& states);
    void blameStages(const std::vector<State>& states);

    const int64_t mBlockFrames;
    std::vector<Voice> mVoices;
};

}  // namespace android
