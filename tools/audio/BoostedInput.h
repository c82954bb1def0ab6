#pragma once

#include <cmath>

#include "tools/audio/InputFilter.h"

namespace android {

/** An input made louder, which the library can't: its gains end at 1. */
class BoostedInput : public InputFilter {
public:
    /** `factor` is linear. */
    BoostedInput(std::unique_ptr<AudioInput> input, float factor)
        : InputFilter(std::move(input)), mFactor(factor) {}

    size_t readQ27(int32_t* out, size_t frameCount) override {
        const size_t framesRead = input().readQ27(out, frameCount);
        std::transform(out, out + framesRead * channelCount(), out, [this](int32_t sample) {
            return static_cast<int32_t>(
                std::clamp(std::rint(sample * mFactor), -2147483648.0, 2147483647.0));
        });
        return framesRead;
    }

private:
    const double mFactor;
};

}  // namespace android
