#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/**
 * Stereo frames that carry their own number, modulo kPeriod, in samples so small that the sum of
 * kMaxStreams of them neither clips nor wraps: a stream's share of a mix can be read from the mix.
 */
namespace SequencedFrames {

constexpr int kDigits = 900;
constexpr uint64_t kPeriod = uint64_t{kDigits} * kDigits;
constexpr size_t kMaxStreams = 36;
constexpr int kSilence = -1;

/** 16-bit samples go into a wide mix, and back, as Q4.27: 12 more bits. */
template <typename Sample>
constexpr int kShift = sizeof(Sample) == 4 ? 12 : 0;

template <typename Sample>
void encode(uint64_t number, Sample* frame) {
    frame[0] = static_cast<Sample>((number % kDigits + 1) << kShift<Sample>);
    frame[1] = static_cast<Sample>((number / kDigits % kDigits + 1) << kShift<Sample>);
}

/** The number; kSilence for a silent frame, -2 for no valid frame. */
template <typename Sample>
int64_t decode(const Sample* before, const Sample* after) {
    const int64_t unit = int64_t{1} << kShift<Sample>;
    const int64_t left = int64_t{after[0]} - before[0];
    const int64_t right = int64_t{after[1]} - before[1];
    if (left == 0 && right == 0) {
        return kSilence;
    }
    if (left % unit != 0 || right % unit != 0 || left < unit || right < unit ||
        left > kDigits * unit || right > kDigits * unit) {
        return -2;
    }
    return (left / unit - 1) + (right / unit - 1) * kDigits;
}

/** `frameCount` frames from `number` on, as bytes. */
template <typename Sample>
std::vector<uint8_t> make(uint64_t number, size_t frameCount) {
    std::vector<uint8_t> bytes(frameCount * 2 * sizeof(Sample));
    for (size_t i = 0; i < frameCount; ++i) {
        encode(number + i, reinterpret_cast<Sample*>(bytes.data()) + 2 * i);
    }
    return bytes;
}

}  // namespace SequencedFrames
