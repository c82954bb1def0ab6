#include "stream/ConversionChain.h"

#include "processor/ChannelMixer.h"
#include "processor/Resampler.h"

namespace android {

namespace {

/** Wires stages one behind the other. */
class ChainBuilder {
public:
    ChainBuilder(const sp<FrameBuffer>& input, uint32_t bufferFrameCount)
        : mInput(input), mCurrent(input), mBufferFrameCount(bufferFrameCount) {}

    /** A stage that overwrites a buffer of its own, which the next stage reads. */
    void append(const sp<AudioProcesser>& stage, audio_format_t format, uint32_t channelMask) {
        stage->setInputBuffer(mCurrent);
        mCurrent = new FrameBuffer(format, channelMask, mBufferFrameCount, false, 0, 0);
        stage->setOutputBuffer(mCurrent);
        mComplete = mComplete && mCurrent->validate();
        mChain.processers.add(stage);
    }

    void remember(const sp<Resampler>& resampler) { mChain.resampler = resampler; }

    ConversionChain finish(const sp<VolumeMixer>& last) {
        if (!mComplete) {
            // As many frames could be had once, or else the stream never plays at all.
            return refusal(mInput->validate() ? -ENOMEM : -EINVAL);
        }
        last->setInputBuffer(mCurrent);
        mChain.processers.add(last);
        mChain.volumeMixer = last;
        mChain.status = OK;
        return mChain;
    }

    static ConversionChain refusal(status_t status) {
        ConversionChain empty;
        empty.status = status;
        return empty;
    }

private:
    ConversionChain mChain;
    const sp<FrameBuffer> mInput;
    sp<FrameBuffer> mCurrent;
    const uint32_t mBufferFrameCount;
    bool mComplete = true;
};

}  // namespace

ConversionChain ConversionChain::build(const PcmConfig& source, const PcmConfig& target,
                                       const sp<FrameBuffer>& input, uint32_t bufferFrameCount) {
    if (!VolumeMixer::isFormatSupported(source.format, target.format) ||
        !VolumeMixer::isChannelSupported(target.channelMask) || source.sampleRate == 0 ||
        target.sampleRate == 0 || audio_channel_count_from_out_mask(source.channelMask) == 0) {
        return {};
    }
    const auto rampFrameCount = static_cast<int>(bufferFrameCount);
    ChainBuilder builder(input, bufferFrameCount);
    audio_format_t format = source.format;
    if (target.channelMask != source.channelMask) {
        builder.append(new ChannelMixer(source.channelMask, target.channelMask, format), format,
                       target.channelMask);
    }
    if (target.sampleRate != source.sampleRate) {
        if (format != AUDIO_FORMAT_PCM_16_BIT) {
            builder.append(
                new VolumeMixer(format, source.channelMask, AUDIO_FORMAT_PCM_16_BIT,
                                target.channelMask, rampFrameCount, VOLUMER_TYPE_PROCESS),
                AUDIO_FORMAT_PCM_16_BIT, target.channelMask);
            format = AUDIO_FORMAT_PCM_16_BIT;
        }
        const sp<Resampler> resampler(
            new Resampler(source.sampleRate, target.sampleRate, format, target.channelMask));
        if (!resampler->isCreated()) {
            return ChainBuilder::refusal(resampler->createStatus());
        }
        builder.append(resampler, format, target.channelMask);
        builder.remember(resampler);
    }
    return builder.finish(new VolumeMixer(format, source.channelMask, target.format,
                                          target.channelMask, rampFrameCount, VOLUMER_TYPE_MIX));
}

}  // namespace android
