#pragma once

#include <algorithm>
#include <cmath>

namespace android {

/** Where times and leads lie in the picture, and round numbers for its axes. */
struct ChartFrame {
    static constexpr double kWidth = 1100;
    static constexpr double kHeight = 560;
    static constexpr double kLeft = 84;
    static constexpr double kRight = 1076;
    static constexpr double kTop = 96;
    static constexpr double kBottom = 428;

    double endSec = 1;
    double lowMs = -1;
    double highMs = 1;

    double x(double timeSec) const {
        return kLeft + (kRight - kLeft) * std::clamp(timeSec / endSec, 0.0, 1.0);
    }
    /** Leads beyond the frame lie on its edge. */
    double y(double leadMs) const {
        const double held = std::clamp(leadMs, lowMs, highMs);
        return kBottom - (kBottom - kTop) * (held - lowMs) / (highMs - lowMs);
    }

    /** The 1, 2 or 5 times a power of ten that cuts `span` into `count` steps or fewer. */
    static double stepOf(double span, int count) {
        const double raw = span / count;
        const double power = std::pow(10.0, std::floor(std::log10(raw)));
        for (const double factor : {1.0, 2.0, 5.0}) {
            if (factor * power >= raw * (1 - 1e-9)) {
                return factor * power;
            }
        }
        return 10 * power;
    }
};

}  // namespace android
