#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace android {

/** A level of 1.0 is full scale, 0 dB. */
inline double decibelsOf(double level) {
    return 20.0 * std::log10(level);
}

/** Such as "-5.02 dBFS". */
inline std::string decibelText(double level) {
    char text[32] = "-inf dBFS";
    if (level > 0.0) {
        snprintf(text, sizeof(text), "%.2f dBFS", decibelsOf(level));
    }
    return text;
}

}  // namespace android
