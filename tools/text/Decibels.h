#pragma once

#include <fmt/format.h>

#include <cmath>
#include <string>

namespace android {

/** A level of 1.0 is full scale, 0 dB. */
inline double decibelsOf(double level) {
    return 20.0 * std::log10(level);
}

/** Such as "-5.02 dBFS". */
inline std::string decibelText(double level) {
    return level > 0.0 ? fmt::format("{:.2f} dBFS", decibelsOf(level)) : "-inf dBFS";
}

}  // namespace android
