#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace android {

/**
 * Where an input's samples come from, in a rate and channels of its own.
 * Invariant: 1 or more channels, a rate that a stream may have.
 * Threads:   one at a time, cancel() apart.
 */
class AudioInput {
public:
    AudioInput() = default;
    virtual ~AudioInput() = default;
    AudioInput(const AudioInput&) = delete;
    AudioInput& operator=(const AudioInput&) = delete;

    virtual uint32_t rateHz() const = 0;
    virtual uint32_t channelCount() const = 0;
    /** What is promised, there may be fewer; negative: nobody knows before it is over. */
    virtual int64_t frameCount() const = 0;
    /** 16 bits hold every sample. */
    virtual bool fits16Bits() const = 0;
    /** Which channel is which, as SF_CHANNEL_MAP_...; empty: nothing says so. */
    virtual std::vector<int> channelMap() const { return {}; }
    /** Such as "44100 Hz, 16-bit PCM, stereo". */
    virtual std::string describe() const = 0;

    /** Interleaved frames, fewer than asked at the end only. Throws ToolError where it fails. */
    virtual size_t read16(int16_t* out, size_t frameCount) = 0;
    /** The same as Q4.27: full scale is 1 << 27. */
    virtual size_t readQ27(int32_t* out, size_t frameCount) = 0;
    /** Back to the first frame; throws where that can't be done. */
    virtual void rewind() = 0;
    /** From any thread: no more frames are wanted, and a read that waits for some ends. */
    virtual void cancel() {}
};

}  // namespace android
