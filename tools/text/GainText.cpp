#include "tools/text/GainText.h"

#include <cmath>

#include "tools/process/ToolError.h"
#include "tools/text/Quantity.h"

namespace android {

double parseGain(const std::string& text, const std::string& where, double maxGain) {
    const auto [value, unit] = quantityOf(text);
    const bool isDecibel = unit == "dB" || unit == "db";
    const double gain = isDecibel ? std::pow(10.0, value / 20.0) : value;
    if (std::isnan(value) || !(unit.empty() || isDecibel)) {
        throw ToolError(where + ": '" + text + "' is not a gain; write 0.5 or -6dB", EXIT_USAGE);
    }
    if (gain < 0.0 || gain > maxGain) {
        throw ToolError(where + ": a gain of " + text + " is outside " +
                            (maxGain > 1.0 ? "0 to 15.8, which is +24dB; write 0.5, -6dB or +6dB"
                                           : "0 to 1; write 0.5 or -6dB"),
                        EXIT_USAGE);
    }
    return gain;
}

}  // namespace android
