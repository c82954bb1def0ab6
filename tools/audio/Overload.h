#pragma once

#include <cstdint>
#include <vector>

namespace android {

/** The samples of a mix whose sum lies beyond full scale: how many, when, and how far. */
class Overload {
public:
    /** Samples that follow each other within half a second. */
    struct Stretch {
        int64_t beginFrame;
        int64_t endFrame;
        int64_t sampleCount;
    };

    explicit Overload(uint32_t rateHz) : mRateHz(rateHz) {}

    /** A sample of this frame, beyond full scale at 1.0; frames never run backwards. */
    void add(int64_t frame, double level);
    /** The samples of Q4.27 stereo frames, the first of which is `frame`, that are beyond. */
    void addQ27(int64_t frame, const int32_t* samples, int64_t frameCount);

    int64_t sampleCount() const { return mSampleCount; }
    /** The largest of them; 0.0 where there are none. */
    double peak() const { return mPeak; }
    /** By how many dB all gains have to go down, rounded up to a tenth. */
    double excessDb() const;
    const std::vector<Stretch>& stretches() const { return mStretches; }
    double secondsOf(int64_t frame) const { return static_cast<double>(frame) / mRateHz; }

private:
    const uint32_t mRateHz;
    int64_t mSampleCount = 0;
    double mPeak = 0.0;
    std::vector<Stretch> mStretches;
};

}  // namespace android
