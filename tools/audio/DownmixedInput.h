#pragma once

#include <array>
#include <string>
#include <vector>

#include "tools/audio/InputFilter.h"

namespace android {

/**
 * Three to eight channels as stereo, by the coefficients of ITU-R BS.775-3, annex 4: the centre and
 * the surround channels 3 dB down, the low-frequency one left out. All of it is lowered so that no
 * sample can pass full scale: 7.7 dB of 5.1, 9.9 dB of 7.1.
 */
class DownmixedInput : public InputFilter {
public:
    /** Throws ToolError (usage) naming `path` for channels that have no place in stereo. */
    DownmixedInput(std::unique_ptr<AudioInput> input, const std::string& path);

    uint32_t channelCount() const override { return 2; }
    std::string describe() const override { return input().describe() + ", downmixed to stereo"; }
    std::vector<int> channelMap() const override { return {}; }
    size_t readQ27(int32_t* out, size_t frameCount) override;

private:
    using Gains = std::array<double, 2>;  // to the left and to the right

    std::vector<Gains> mGains;  // of each channel
    std::vector<int32_t> mFrames;
};

}  // namespace android
