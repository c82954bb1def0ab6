#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

#include "tools/audio/StreamConfig.h"

namespace android {

/** What the payload of a burst stream is made of. The stream itself does not say. */
struct PcmFormat {
    uint32_t rateHz = 48000;
    uint32_t channelCount = 2;
    uint32_t bits = 16;  // 32: Q4.27

    uint32_t frameBytes() const { return channelCount * bits / 8; }
    /** How long `byteCount` bytes play; exact to the ns for more than a month. */
    int64_t durationNs(uint64_t byteCount) const {
        const uint64_t bytesPerSec = uint64_t{rateHz} * frameBytes();
        return static_cast<int64_t>(byteCount / bytesPerSec * 1'000'000'000 +
                                    byteCount % bytesPerSec * 1'000'000'000 / bytesPerSec);
    }

    void addOptions(CLI::App& command) {
        command.add_option("--rate", rateHz, "Rate of the payload in Hz")
            ->check(CLI::Range(kMinRateHz, kMaxRateHz))
            ->capture_default_str();
        command.add_option("--channels", channelCount, "Channels of the payload")
            ->check(CLI::Range(1, 8))
            ->capture_default_str();
        command.add_option("--format", bits, "Sample format of the payload: 16 or 32 bits")
            ->check(CLI::IsMember({16, 32}))
            ->capture_default_str();
    }
};

}  // namespace android
