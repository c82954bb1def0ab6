#pragma once

#include <cstdint>

namespace android {

/** Frames in one block of the mix, which is a cycle of the worker: about 20 ms. */
constexpr uint32_t blockFrames(uint32_t rateHz) {
    return rateHz == 44100 ? 900 : static_cast<uint32_t>(uint64_t{rateHz} * 20 / 1000);
}

}  // namespace android
