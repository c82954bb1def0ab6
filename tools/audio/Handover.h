#pragma once

#include <cstdint>

#include "interface/streamproxy.h"
#include "pipeline/BlockLength.h"

namespace android {

/** Smallest whole number of frames at `toHz` that lasts as long as `frameCount` at `fromHz`. */
constexpr int64_t framesAtRate(int64_t frameCount, uint32_t fromHz, uint32_t toHz) {
    // Whole seconds apart, so that no length that a file can have overflows.
    const int64_t second = frameCount / fromHz;
    return second * toHz + (frameCount % fromHz * toHz + fromHz - 1) / fromHz;
}

/**
 * How one input is handed to the library, and what the library needs of it to mix in full blocks.
 *
 * The library moves audio between channel layouts and sample formats before it converts the rate,
 * and asks every such stage for the mix's frame count. Where the rate falls, that is less than the
 * converter needs: the block comes short. Where it rises, the surplus piles up until a stage has
 * no room. So an input whose rate differs from the mix's is brought to 16-bit stereo here, by the
 * arithmetic that the library uses, and meets the converter alone. Mono becomes two equal channels;
 * the library itself would put it on the left only.
 */
struct Handover {
    struct Source {
        uint32_t rateHz;
        uint32_t channelCount;
        bool fits16Bits;
    };

    /** What the user has a say in. */
    struct Wishes {
        bool isNative;         // hand over what the file holds
        int64_t bufferFrames;  // at least
        int64_t writeFrames;   // 0: 10 ms, or what a block takes at once
    };

    Handover(const Source& source, uint32_t mixRateHz, const Wishes& wishes);

    bool isConverted() const { return config.sample_rate != mixRateHz; }
    /** A stage stands in front of the converter. */
    bool isStaged() const {
        return isConverted() && (config.format != STREAMPROXY_FORMAT_PCM_16_BIT ||
                                 config.channel_mask != STREAMPROXY_CHANNEL_MASK_STEREO);
    }
    /** Comes short in every block, so that streams mixed before it lose audio. */
    bool deliversShort() const { return isStaged() && config.sample_rate > mixRateHz; }
    uint32_t sampleBytes() const { return config.format == STREAMPROXY_FORMAT_PCM_16_BIT ? 2 : 4; }
    uint32_t frameBytes() const { return sampleBytes() * channelCount; }

    /** Frames that must have been written so that the mix can reach `mixFrame`. */
    int64_t framesNeeded(int64_t mixFrame) const {
        return framesAtRate(mixFrame, mixRateHz, config.sample_rate) + marginFrames;
    }
    /** Where the mix has heard everything of an input of `frameCount` frames. */
    int64_t mixFramesOf(int64_t frameCount) const {
        return framesAtRate(frameCount + delayFrames, config.sample_rate, mixRateHz);
    }

    uint32_t mixRateHz;
    audio_proxy_config_t config{};
    uint32_t channelCount;
    int64_t marginFrames = 0;  // what a converter may look ahead or hold back
    int64_t delayFrames = 0;   // by how much a converter's output lags
    int64_t writeFrames;       // in one write that may wait for room
    int64_t fillFrames;        // in one that need not: any number, unless it was wished for
    int64_t bufferFrames;      // of the stream's ring
};

}  // namespace android
