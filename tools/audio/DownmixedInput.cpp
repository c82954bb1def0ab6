#include "tools/audio/DownmixedInput.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <cmath>
#include <numbers>
#include <optional>

#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr double kLower = 1.0 / std::numbers::sqrt2;

/** The order of WAVE_FORMAT_EXTENSIBLE, where nothing else says which channel is which. */
std::vector<int> usualMap(uint32_t channelCount) {
    constexpr int kLeft = SF_CHANNEL_MAP_LEFT;
    constexpr int kRight = SF_CHANNEL_MAP_RIGHT;
    constexpr int kCentre = SF_CHANNEL_MAP_CENTER;
    constexpr int kLfe = SF_CHANNEL_MAP_LFE;
    constexpr int kBackLeft = SF_CHANNEL_MAP_REAR_LEFT;
    constexpr int kBackRight = SF_CHANNEL_MAP_REAR_RIGHT;
    constexpr int kSideLeft = SF_CHANNEL_MAP_SIDE_LEFT;
    constexpr int kSideRight = SF_CHANNEL_MAP_SIDE_RIGHT;
    switch (channelCount) {
        case 3:
            return {kLeft, kRight, kCentre};
        case 4:
            return {kLeft, kRight, kBackLeft, kBackRight};
        case 5:
            return {kLeft, kRight, kCentre, kBackLeft, kBackRight};
        case 6:
            return {kLeft, kRight, kCentre, kLfe, kBackLeft, kBackRight};
        case 7:
            return {kLeft,     kRight,    kCentre, kLfe, SF_CHANNEL_MAP_REAR_CENTER,
                    kSideLeft, kSideRight};
        case 8:
            return {kLeft, kRight, kCentre, kLfe, kBackLeft, kBackRight, kSideLeft, kSideRight};
        default:
            return {};
    }
}

/** To the left and to the right. */
std::optional<std::array<double, 2>> gainsOf(int channel) {
    using Gains = std::array<double, 2>;
    switch (channel) {
        case SF_CHANNEL_MAP_LEFT:
        case SF_CHANNEL_MAP_FRONT_LEFT:
            return Gains{1.0, 0.0};
        case SF_CHANNEL_MAP_RIGHT:
        case SF_CHANNEL_MAP_FRONT_RIGHT:
            return Gains{0.0, 1.0};
        case SF_CHANNEL_MAP_CENTER:
        case SF_CHANNEL_MAP_FRONT_CENTER:
            return Gains{kLower, kLower};
        case SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER:
        case SF_CHANNEL_MAP_SIDE_LEFT:
        case SF_CHANNEL_MAP_REAR_LEFT:
            return Gains{kLower, 0.0};
        case SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER:
        case SF_CHANNEL_MAP_SIDE_RIGHT:
        case SF_CHANNEL_MAP_REAR_RIGHT:
            return Gains{0.0, kLower};
        case SF_CHANNEL_MAP_REAR_CENTER:
            return Gains{0.5, 0.5};  // as much power as a pair
        case SF_CHANNEL_MAP_LFE:
            return Gains{0.0, 0.0};
        default:
            return std::nullopt;
    }
}

}  // namespace

DownmixedInput::DownmixedInput(std::unique_ptr<AudioInput> source, const std::string& path)
    : InputFilter(std::move(source)) {
    const uint32_t channels = input().channelCount();
    std::vector<int> map = input().channelMap();
    if (map.size() != channels) {
        map = usualMap(channels);
    }
    Gains sums{};
    for (const int channel : map) {
        const auto gains = gainsOf(channel);
        if (gains) {
            mGains.push_back(*gains);
            sums = {sums[0] + (*gains)[0], sums[1] + (*gains)[1]};
        }
    }
    if (mGains.size() != channels) {
        throw ToolError(fmt::format("{}: downmix: nothing is known of how its {} channels make "
                                    "stereo; leave downmix out, which plays the first two",
                                    path, channels),
                        EXIT_USAGE);
    }
    const double highest = std::max(sums[0], sums[1]);
    for (Gains& gains : mGains) {
        gains = {gains[0] / highest, gains[1] / highest};
    }
}

size_t DownmixedInput::readQ27(int32_t* out, size_t frameCount) {
    const size_t channels = mGains.size();
    mFrames.resize(frameCount * channels);
    const size_t framesRead = input().readQ27(mFrames.data(), frameCount);
    for (size_t frame = 0; frame < framesRead; ++frame) {
        Gains sums{};
        for (size_t channel = 0; channel < channels; ++channel) {
            const double sample = mFrames[frame * channels + channel];
            sums[0] += sample * mGains[channel][0];
            sums[1] += sample * mGains[channel][1];
        }
        out[2 * frame] = static_cast<int32_t>(std::rint(sums[0]));
        out[2 * frame + 1] = static_cast<int32_t>(std::rint(sums[1]));
    }
    return framesRead;
}

}  // namespace android
