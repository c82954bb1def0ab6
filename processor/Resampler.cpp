#include "processor/Resampler.h"

#include <cstring>

#include "android/log.h"
#include "audio_utils/resampler.h"
#include "buffer/FrameSize.h"

namespace android {

namespace {
constexpr const char* kTag = "resampler";
}

Resampler::Resampler(unsigned int srcSampleRate, unsigned int dstSampleRate, audio_format_t format,
                     unsigned int channelMask)
    : AudioProcesser(String8("resampler")),
      mSrcSampleRate(srcSampleRate),
      mDstSampleRate(dstSampleRate),
      mFrameSize(static_cast<uint32_t>(frameSizeOf(format, channelMask))) {
    const uint32_t channelCount = audio_channel_count_from_out_mask(channelMask);
    mCreateStatus = create_resampler(srcSampleRate, dstSampleRate, channelCount, mQuality, nullptr,
                                     &mResampler);
    if (mCreateStatus != OK) {
        mResampler = nullptr;
    }
}

Resampler::~Resampler() {
    if (mResampler != nullptr) {
        release_resampler(mResampler);
        mResampler = nullptr;
    }
}

void Resampler::reset() {
    if (mResampler != nullptr) {
        mResampler->reset(mResampler);
    }
}

size_t Resampler::getInputFramesRequired(size_t outFrameCount) {
    if (mDstSampleRate == 0) {
        return 0;
    }
    return (outFrameCount * mSrcSampleRate + mDstSampleRate - 1) / mDstSampleRate;
}

ssize_t Resampler::resample(void* out, size_t frameCount, sp<FrameBuffer> in) {
    size_t need = getInputFramesRequired(frameCount);
    if (in == nullptr) {
        return -EINVAL;
    }
    if (mResampler == nullptr) {
        return 0;
    }
    size_t done = 0;
    while (need > 0 && done < frameCount) {
        void* region = nullptr;
        size_t consumed = need;
        if (in->obtainReadBuffer(&region, consumed) != OK || consumed == 0) {
            break;
        }
        size_t produced = frameCount - done;
        uint8_t* const target = static_cast<uint8_t*>(out) + done * mFrameSize;
        const int status =
            mResampler->resample_from_input(mResampler, static_cast<int16_t*>(region), &consumed,
                                            reinterpret_cast<int16_t*>(target), &produced);
        const bool failed = status != 0 || produced == 0;
        if (failed) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "%s, fail to resample: status %d, count %zd", __func__, status,
                                static_cast<ssize_t>(produced));
        }
        // Also without output: a starving resampler has taken these frames into its history, and
        // must not be fed them again.
        if (in->releaseReadBuffer(region, consumed) != OK || failed) {
            break;
        }
        need -= consumed;
        done += produced;
    }
    return static_cast<ssize_t>(done);
}

ssize_t Resampler::process(size_t frameCount) {
    if (mOutputBuffer == nullptr || mInputBuffer == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, output buffer or input buffer is not ready", __func__);
        return -ENODEV;
    }
    if (mResampler == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, AudioResampler is not created yet",
                            __func__);
        return -ENODEV;
    }
    return fillOutput(frameCount, OnRefusal::kFramesDone, [this](void* region, size_t frames) {
        memset(region, 0, mOutputBuffer->mFrameSize * frames);
        return resample(region, frames, mInputBuffer);
    });
}

}  // namespace android
