#pragma once

namespace android {

/** Leads of sound against picture, in ms; above 0 sound is early. */
struct LeadRange {
    double earlyMs;
    double lateMs;

    bool isEarly(double leadMs) const { return leadMs > earlyMs; }
    bool isLate(double leadMs) const { return leadMs < lateMs; }
};

// ITU-R BT.1359-1: beyond the first viewers notice, beyond the second they object.
constexpr LeadRange kDetectability = {.earlyMs = 45, .lateMs = -125};
constexpr LeadRange kAcceptability = {.earlyMs = 90, .lateMs = -185};

}  // namespace android
