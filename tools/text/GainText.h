#pragma once

#include <string>

namespace android {

constexpr double kMaxGain = 15.85;  // 24 dB, what Q4.27 holds of full scale

/** A gain from 0 to `maxGain`, linear ("0.5") or in decibels ("-6dB"). Throws ToolError (usage) for
 *  anything else; `where` names the option in it. */
double parseGain(const std::string& text, const std::string& where, double maxGain = kMaxGain);

}  // namespace android
