#include "tools/audio/Handover.h"

#include <audio_utils/resampler.h>

#include <algorithm>
#include <cmath>

#include "tools/audio/StreamConfig.h"

namespace android {

namespace {

int64_t slowerFramesAt(int64_t frameCount, uint32_t rateHz, uint32_t otherRateHz) {
    return rateHz > otherRateHz ? framesAtRate(frameCount, otherRateHz, rateHz) : frameCount;
}

/** By how many input frames the platform's converter lags behind, by its own account. */
int64_t converterDelayFrames(uint32_t rateHz, uint32_t otherRateHz) {
    resampler_itfe* converter = nullptr;
    if (create_resampler(rateHz, otherRateHz, 2, 0, nullptr, &converter) != 0) {
        return 0;  // the library has none either, and makes no stream
    }
    const double delaySec = converter->delay_ns(converter) / 1e9;
    release_resampler(converter);
    return std::llround(delaySec * rateHz);
}

}  // namespace

Handover::Handover(const Source& source, uint32_t mixRate, const Wishes& wishes)
    : mixRateHz(mixRate),
      channelCount(source.channelCount),
      writeFrames(wishes.writeFrames > 0 ? wishes.writeFrames : source.rateHz / 100),
      fillFrames(wishes.writeFrames > 0 ? wishes.writeFrames : INT64_MAX),
      bufferFrames(wishes.bufferFrames) {
    config.sample_rate = source.rateHz;
    config.format =
        source.fits16Bits ? STREAMPROXY_FORMAT_PCM_16_BIT : STREAMPROXY_FORMAT_PCM_32_BIT;
    if (!wishes.isNative && source.rateHz != mixRateHz) {
        config.format = STREAMPROXY_FORMAT_PCM_16_BIT;
        channelCount = 2;
    }
    if ((!wishes.isNative && channelCount == 1) || channelCount > STREAMPROXY_MAX_CHANNEL_COUNT) {
        channelCount = 2;
    }
    config.channel_mask = channelMaskOf(channelCount);

    if (isConverted()) {
        delayFrames = converterDelayFrames(source.rateHz, mixRateHz);
        marginFrames = std::max(slowerFramesAt(RESAMPLER_MAX_HELD_FRAMES, source.rateHz, mixRateHz),
                                delayFrames) +
                       2;
    }
    // What the mix may take in one block, with what the converter may leave or take ahead. Room for
    // one more write: frames of a write that is still under way are not counted yet, and one that
    // waits for room must mean that the next block is there. The buffers between the library's
    // stages are as long as the ring, and hold a block of the mix.
    const int64_t mixBlock = blockFrames(mixRateHz);
    const int64_t ownBlock = framesAtRate(mixBlock, mixRateHz, source.rateHz);
    const int64_t taken = isStaged() ? std::max(ownBlock, mixBlock) : ownBlock;
    bufferFrames =
        std::max({bufferFrames, taken + 2 * marginFrames + writeFrames, mixBlock + marginFrames});
    // A gain walks to its new value over as many frames of the mix as the buffer holds, and stops
    // at the end of a block only: whole blocks, or it would overshoot and jump back with a click.
    bufferFrames = (bufferFrames + mixBlock - 1) / mixBlock * mixBlock;
}

}  // namespace android
