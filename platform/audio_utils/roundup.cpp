#include "audio_utils/roundup.h"

#include <bit>
#include <limits>

unsigned roundup(unsigned v) {
    constexpr unsigned kLargestPower = 1U << (std::numeric_limits<unsigned>::digits - 1);
    return v == 0 || v > kLargestPower ? 0 : std::bit_ceil(v);
}
