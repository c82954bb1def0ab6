#include "tools/audio/Overload.h"

#include <algorithm>
#include <cmath>

#include "tools/text/Decibels.h"

namespace android {

namespace {

constexpr int32_t kFullScaleQ27 = 1 << 27;

}  // namespace

void Overload::add(int64_t frame, double level) {
    if (mStretches.empty() || frame > mStretches.back().endFrame + mRateHz / 2) {
        mStretches.push_back({.beginFrame = frame, .endFrame = frame + 1, .sampleCount = 0});
    }
    Stretch& stretch = mStretches.back();
    stretch.endFrame = frame + 1;
    stretch.sampleCount += 1;
    mSampleCount += 1;
    mPeak = std::max(mPeak, level);
}

void Overload::addQ27(int64_t frame, const int32_t* samples, int64_t frameCount) {
    for (int64_t i = 0; i < 2 * frameCount; ++i) {
        if (samples[i] >= kFullScaleQ27 || samples[i] < -kFullScaleQ27) {
            add(frame + i / 2, std::abs(static_cast<double>(samples[i])) / kFullScaleQ27);
        }
    }
}

double Overload::excessDb() const {
    // The highest sample that 16 bits have is one step below full scale.
    return mPeak > 0.0 ? std::ceil(decibelsOf(mPeak * 32768.0 / 32767.0) * 10.0) / 10.0 : 0.0;
}

}  // namespace android
