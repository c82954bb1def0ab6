#pragma once

#include <cstdint>

#include "processor/AudioProcesser.h"
#include "processor/Resampler.h"
#include "processor/VolumeMixer.h"
#include "stream/PcmConfig.h"
#include "utils/Vector.h"

namespace android {

/**
 * The stages that turn a stream's frames into the mixing configuration, in the order of processing:
 * channels in the stream's own format; 16-bit samples and the target rate, when the rate differs;
 * last gain, ramp and target format. Each pair of stages shares one intermediate buffer.
 */
struct ConversionChain {
    Vector<sp<AudioProcesser>> processers;
    sp<Resampler> resampler;      // the stage that keeps a history; null where rates are equal
    sp<VolumeMixer> volumeMixer;  // the last stage; its output is the caller's buffer
    status_t status = -EINVAL;    // 0: the chain is whole

    /**
     * Builds a chain that reads `input` (in `source` configuration). Intermediate buffers and gain
     * ramps are `bufferFrameCount` frames long.
     *
     * `status` -EINVAL, an empty chain: the target can't be reached, for a rate of 0, a source
     * without channels, rates between which nothing resamples, formats and masks that the volume
     * stage does not know, or an `input` without storage where the chain needs another buffer like
     * it. -ENOMEM, an empty chain: no memory for a buffer or a filter; for the smaller objects
     * std::bad_alloc is thrown.
     */
    static ConversionChain build(const PcmConfig& source, const PcmConfig& target,
                                 const sp<FrameBuffer>& input, uint32_t bufferFrameCount);
};

}  // namespace android
