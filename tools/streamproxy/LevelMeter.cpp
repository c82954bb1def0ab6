#include "tools/streamproxy/LevelMeter.h"

#include <utility>

#include "tools/streamproxy/FullScale.h"

namespace android {

namespace {

void add(Levels& sum, const Levels& block) {
    sum.frameCount += block.frameCount;
    sum.clippedCount += block.clippedCount;
    for (size_t channel = 0; channel < Levels::kChannels; ++channel) {
        sum.peaks[channel] = std::max(sum.peaks[channel], block.peaks[channel]);
        sum.squareSums[channel] += block.squareSums[channel];
    }
}

}  // namespace

void LevelMeter::measure(const void* frames, size_t frameCount) {
    Levels block;
    block.frameCount = static_cast<int64_t>(frameCount);
    for (size_t i = 0; i < frameCount * Levels::kChannels; ++i) {
        const int64_t sample = fullScaleSample(frames, i, mBits);
        const int32_t held = heldSample(sample);
        block.clippedCount += held != sample ? 1 : 0;
        const double level = static_cast<double>(held) / 2147483648.0;
        double& peak = block.peaks[i % Levels::kChannels];
        peak = std::max(peak, std::abs(level));
        block.squareSums[i % Levels::kChannels] += level * level;
    }
    const std::lock_guard<std::mutex> lock(mLock);
    add(mTotal, block);
    add(mRecent, block);
}

Levels LevelMeter::total() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mTotal;
}

Levels LevelMeter::takeRecent() {
    const std::lock_guard<std::mutex> lock(mLock);
    return std::exchange(mRecent, Levels());
}

}  // namespace android
