#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio/AudioInput.h"

namespace android {

/** Changes another input's samples in Q4.27, which has room above full scale. */
class InputFilter : public AudioInput {
public:
    explicit InputFilter(std::unique_ptr<AudioInput> input) : mInput(std::move(input)) {}

    uint32_t rateHz() const override { return mInput->rateHz(); }
    uint32_t channelCount() const override { return mInput->channelCount(); }
    int64_t frameCount() const override { return mInput->frameCount(); }
    bool fits16Bits() const override { return false; }
    std::string describe() const override { return mInput->describe(); }
    std::vector<int> channelMap() const override { return mInput->channelMap(); }
    /** What lies above full scale is held to it. */
    size_t read16(int16_t* out, size_t frameCount) override {
        mWide.resize(frameCount * channelCount());
        const size_t framesRead = readQ27(mWide.data(), frameCount);
        std::transform(mWide.begin(),
                       mWide.begin() + static_cast<std::ptrdiff_t>(framesRead * channelCount()),
                       out, [](int32_t sample) {
                           return static_cast<int16_t>(std::clamp(sample >> 12, -32768, 32767));
                       });
        return framesRead;
    }
    void rewind() override { mInput->rewind(); }
    void cancel() override { mInput->cancel(); }

protected:
    AudioInput& input() { return *mInput; }
    const AudioInput& input() const { return *mInput; }

private:
    const std::unique_ptr<AudioInput> mInput;
    std::vector<int32_t> mWide;
};

}  // namespace android
