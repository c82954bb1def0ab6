#include "tools/audio/LevelMeter.h"

#include <utility>

#include "tools/audio/FullScale.h"

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

/** 16-bit samples in whole numbers: none is clipped, and the compiler makes vectors of it. */
Levels levelsOf16(const int16_t* samples, size_t frameCount) {
    Levels block;
    block.frameCount = static_cast<int64_t>(frameCount);
    for (size_t channel = 0; channel < Levels::kChannels; ++channel) {
        int16_t lowest = 0;
        int16_t highest = 0;
        int64_t squareSum = 0;
        for (size_t frame = 0; frame < frameCount; ++frame) {
            const int16_t sample = samples[frame * Levels::kChannels + channel];
            lowest = std::min(lowest, sample);
            highest = std::max(highest, sample);
            squareSum += static_cast<uint32_t>(sample * sample);
        }
        block.peaks[channel] = std::max(-static_cast<double>(lowest), 1.0 * highest) / 32768.0;
        block.squareSums[channel] = static_cast<double>(squareSum) / (32768.0 * 32768.0);
    }
    return block;
}

Levels levelsOfQ27(const int32_t* samples, size_t frameCount) {
    Levels block;
    block.frameCount = static_cast<int64_t>(frameCount);
    for (size_t i = 0; i < frameCount * Levels::kChannels; ++i) {
        const int64_t sample = fullScaleSample(samples, i, 32);
        const int32_t held = heldSample(sample);
        block.clippedCount += held != sample ? 1 : 0;
        const double level = static_cast<double>(held) / 2147483648.0;
        double& peak = block.peaks[i % Levels::kChannels];
        peak = std::max(peak, std::abs(level));
        block.squareSums[i % Levels::kChannels] += level * level;
    }
    return block;
}

}  // namespace

void LevelMeter::measure(const void* frames, size_t frameCount) {
    const Levels block = mBits == 16 ? levelsOf16(static_cast<const int16_t*>(frames), frameCount)
                                     : levelsOfQ27(static_cast<const int32_t*>(frames), frameCount);
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
