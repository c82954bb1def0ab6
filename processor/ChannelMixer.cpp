#include "processor/ChannelMixer.h"

#include "android/log.h"
#include "audio_utils/channels.h"

namespace android {

namespace {
constexpr const char* kTag = "audio_channelmixer";
}

ChannelMixer::ChannelMixer(unsigned int srcChannelMask, unsigned int dstChannelMask,
                           audio_format_t format)
    : AudioProcesser(String8("channel_mixer")),
      mSrcChannelCount(audio_channel_count_from_out_mask(srcChannelMask)),
      mDstChannelCount(audio_channel_count_from_out_mask(dstChannelMask)),
      mSampleSize(audio_bytes_per_sample(format)),
      mSrcFrameSize(mSampleSize * mSrcChannelCount),
      mDstFrameSize(mSampleSize * mDstChannelCount),
      mValid(mSrcFrameSize != 0 && mDstFrameSize != 0) {
    if (!mValid) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, invalid config to convert channel from %x to %x with format %x",
                            __func__, srcChannelMask, dstChannelMask, format);
    }
}

ssize_t ChannelMixer::adjust(void* out, size_t inByteCount, void* in) {
    if (inByteCount == 0 || out == nullptr || in == nullptr) {
        return -EINVAL;
    }
    return static_cast<ssize_t>(adjust_channels(in, mSrcChannelCount, out, mDstChannelCount,
                                                static_cast<unsigned>(mSampleSize), inByteCount));
}

ssize_t ChannelMixer::adjust(void* out, size_t frameCount, const sp<FrameBuffer>& in) {
    if (in == nullptr) {
        return -EINVAL;
    }
    if (!mValid) {
        return -ENODEV;
    }
    size_t done = 0;
    while (done < frameCount) {
        void* region = nullptr;
        size_t regionFrameCount = frameCount - done;
        const status_t status = in->obtainReadBuffer(&region, regionFrameCount);
        if (status != OK) {
            return status;
        }
        if (regionFrameCount == 0) {
            break;
        }
        const size_t inByteCount = mSrcFrameSize * regionFrameCount;
        auto* const target =
            out != nullptr ? static_cast<uint8_t*>(out) + mDstFrameSize * done : nullptr;
        const ssize_t written = adjust(target, inByteCount, region);
        if (written < 1) {
            // Nothing can be converted: end the pass rather than offer the same region for ever.
            return done > 0 ? static_cast<ssize_t>(done) : written;
        }
        const size_t outByteCount = static_cast<size_t>(written);
        const size_t consumedByteCount = mSrcChannelCount * outByteCount / mDstChannelCount;
        if (consumedByteCount < inByteCount) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "%s, only partial data(%u/%u) are handled by channel mixer",
                                __func__, static_cast<unsigned>(consumedByteCount),
                                static_cast<unsigned>(inByteCount));
        }
        if (in->releaseReadBuffer(region, consumedByteCount / mSrcFrameSize) != OK) {
            break;
        }
        done += outByteCount / mDstFrameSize;
    }
    return static_cast<ssize_t>(done);
}

ssize_t ChannelMixer::process(size_t frameCount) {
    if (mOutputBuffer == nullptr || mInputBuffer == nullptr || !mValid) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, output buffer or input buffer is not ready, or invalid config",
                            __func__);
        return -ENODEV;
    }
    return fillOutput(frameCount, OnRefusal::kStatus, [this](void* region, size_t regionFrames) {
        return adjust(region, regionFrames, mInputBuffer);
    });
}

}  // namespace android
