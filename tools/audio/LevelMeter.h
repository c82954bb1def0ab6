#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "tools/audio/Levels.h"

namespace android {

/**
 * Measures the mix as it passes.
 * Threads: any; the lock is held for one block's arithmetic at most.
 */
class LevelMeter {
public:
    explicit LevelMeter(uint32_t bits) : mBits(bits) {}

    void measure(const void* frames, size_t frameCount);
    /** Of all that has passed. */
    Levels total() const;
    /** Of what has passed since this was asked last. */
    Levels takeRecent();

private:
    const uint32_t mBits;
    mutable std::mutex mLock;
    Levels mTotal;  // both under mLock
    Levels mRecent;
};

}  // namespace android
