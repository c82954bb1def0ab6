#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace android {

/** How loud a stretch of the mix is; 1.0 is full scale. */
struct Levels {
    static constexpr size_t kChannels = 2;

    int64_t frameCount = 0;
    std::array<double, kChannels> peaks{};
    std::array<double, kChannels> squareSums{};
    int64_t clippedCount = 0;  // samples beyond full scale, held to it; Q4.27 only

    double peak() const { return *std::max_element(peaks.begin(), peaks.end()); }
    double rms(size_t channel) const {
        return frameCount > 0 ? std::sqrt(squareSums[channel] / static_cast<double>(frameCount))
                              : 0.0;
    }
    double rms() const { return std::sqrt((rms(0) * rms(0) + rms(1) * rms(1)) / 2); }
};

}  // namespace android
