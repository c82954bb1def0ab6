#include "processor/VolumeMixer.h"

#include <algorithm>
#include <cmath>

#include "android/log.h"
#include "buffer/FrameSize.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_volumemixer";
constexpr int kGainFractionBits = 12;  // U4.12
constexpr int kRampFractionBits = 28;  // U4.28
constexpr int kRampShift = kRampFractionBits - kGainFractionBits;
constexpr float kUnityGain = 1 << kGainFractionBits;

// Signed sums and products that wrap around, as the fixed-point format wants them.
int wrappingAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

}  // namespace

VolumeMixer::VolumeMixer(audio_format_t srcFormat, unsigned int srcChannelMask,
                         audio_format_t dstFormat, unsigned int dstChannelMask, int rampFrameCount,
                         volumer_type_t type)
    : AudioProcesser(String8("mixer")),
      mSrcFormat(srcFormat),
      mSrcChannelMask(srcChannelMask),
      mSrcFrameSize(frameSizeOf(srcFormat, srcChannelMask)),
      mDstFrameSize(frameSizeOf(dstFormat, dstChannelMask)),
      mRampFrames(rampFrameCount),
      mType(type),
      mDump(new AudioDump("/data/misc/audioserver/", "mixer", "vendor.audio.hwsync.mixer")),
      mVolumeOp(volumeOp(srcFormat, dstFormat, type)) {}

bool VolumeMixer::isFormatSupported(audio_format_t src, audio_format_t dst) {
    const auto supported = [](audio_format_t format) {
        return format == AUDIO_FORMAT_PCM_16_BIT || format == AUDIO_FORMAT_PCM_32_BIT;
    };
    return supported(src) && supported(dst);
}

bool VolumeMixer::isChannelSupported(unsigned int mask) {
    return mask == AUDIO_CHANNEL_OUT_STEREO;
}

template <int MixType, int ChannelCount, typename TO, typename TI, typename TV, InstructionSet Set>
void VolumeMixer::volumeMix(void* out, size_t frameCount, const void* in, bool ramp, TV* prevVolume,
                            TV* volumeInc, short* volume) {
    static_assert(ChannelCount == 2);
    volumeKernel<MixType, TO, TI>(Set)(out, frameCount, in, ramp, prevVolume, volumeInc, volume);
    if (ramp) {
        adjustVolumeRamp(prevVolume, volumeInc, volume);
    }
}

template <InstructionSet Set>
constexpr VolumeOp VolumeMixer::kVolumeOps[2][2][2] = {
    // type, 32-bit source, 32-bit destination
    {{volumeMix<0, 2, short, short, int, Set>, volumeMix<0, 2, int, short, int, Set>},
     {volumeMix<0, 2, short, int, int, Set>, volumeMix<0, 2, int, int, int, Set>}},
    {{volumeMix<2, 2, short, short, int, Set>, volumeMix<2, 2, int, short, int, Set>},
     {volumeMix<2, 2, short, int, int, Set>, volumeMix<2, 2, int, int, int, Set>}},
};

VolumeOp VolumeMixer::volumeOp(audio_format_t src, audio_format_t dst, volumer_type_t type) {
    if (type != VOLUMER_TYPE_MIX && type != VOLUMER_TYPE_PROCESS) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Invalid type %d", "VolumeMixer", type);
        return nullptr;
    }
    if (!isFormatSupported(src, src)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, invalid src format %x", __func__, src);
        return nullptr;
    }
    if (!isFormatSupported(dst, dst)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, unsupported dst format %d", __func__,
                            static_cast<int>(dst));
        return nullptr;
    }
    const bool isWideSource = src == AUDIO_FORMAT_PCM_32_BIT;
    const bool isWideTarget = dst == AUDIO_FORMAT_PCM_32_BIT;
#if defined(__x86_64__)
    if (widestInstructionSet() == InstructionSet::kAvx2) {
        return kVolumeOps<InstructionSet::kAvx2>[type][isWideSource][isWideTarget];
    }
#endif
    return kVolumeOps<InstructionSet::kBaseline>[type][isWideSource][isWideTarget];
}

status_t VolumeMixer::setVolume(float left, float right) {
    if (!(left >= 0.0F && left <= 1.0F)) {
        return -EINVAL;
    }
    // A negative gain would invert the channel and a NaN has no meaning to a listener: the right
    // gain is held to the range instead of being refused, so that the status tells of the left.
    mVolume.set({left, std::isnan(right) ? 0.0F : std::clamp(right, 0.0F, 1.0F)});
    return OK;
}

void VolumeMixer::getVolume(float& left, float& right) {
    const Gains gains = mVolume.get();
    left = gains.left;
    right = gains.right;
}

void VolumeMixer::ramp(bool enable) {
    mRampEnabled.store(enable, std::memory_order_relaxed);
}

void VolumeMixer::setVolumeRampVariables() {
    const std::optional<Gains> changed = mVolume.takeChange();
    if (!changed) {
        return;
    }
    const float gains[2] = {changed->left, changed->right};
    for (int i = 0; i < 2; ++i) {
        const int gain = static_cast<int>(std::min(gains[i] * kUnityGain, kUnityGain));
        const int target = gain << kRampShift;
        // 64 bits: the position may have wrapped, and a ramp of -1 frames divides by -1.
        const int64_t distance =
            static_cast<int>(static_cast<unsigned>(target) - static_cast<unsigned>(mPrevVolume[i]));
        const int increment = mRampFrames != 0 ? static_cast<int>(distance / mRampFrames) : 0;
        mVolumeInc[i] = increment;
        if (increment == 0) {
            mPrevVolume[i] = target;
        }
        mIntVolume[i] = static_cast<short>(gain);
    }
}

bool VolumeMixer::shouldRamp() const {
    return mRampEnabled.load(std::memory_order_relaxed) &&
           (mVolume.isChanged() || mVolumeInc[0] != 0 || mVolumeInc[1] != 0);
}

void VolumeMixer::adjustVolumeRamp(int* prevVolume, int* volumeInc, short* volume) {
    for (int i = 0; i < 2; ++i) {
        const int next = wrappingAdd(prevVolume[i], volumeInc[i]) >> kRampShift;
        if ((volumeInc[i] > 0 && next >= volume[i]) || (volumeInc[i] < 0 && next <= volume[i])) {
            volumeInc[i] = 0;
            prevVolume[i] = volume[i] * (1 << kRampShift);
        }
    }
}

ssize_t VolumeMixer::mix(void* out, size_t frameCount, void* in) {
    if (frameCount == 0 || out == nullptr || in == nullptr) {
        return -EINVAL;
    }
    if (mVolumeOp == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, no available volume operation to mix audio data", __func__);
        return static_cast<ssize_t>(frameCount);
    }
    setVolumeRampVariables();
    mVolumeOp(out, frameCount, in, shouldRamp(), mPrevVolume, mVolumeInc, mIntVolume);
    return static_cast<ssize_t>(frameCount);
}

ssize_t VolumeMixer::mix(void* out, size_t frameCount, const sp<FrameBuffer>& in) {
    if (in == nullptr) {
        return -EINVAL;
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
        mDump->dump("_in", region, mSrcFrameSize * regionFrameCount);
        if (out == nullptr || region == nullptr) {
            return -EINVAL;
        }
        uint8_t* const target = static_cast<uint8_t*>(out) + mDstFrameSize * done;
        mix(target, regionFrameCount, region);
        mDump->dump("_out", target, mDstFrameSize * regionFrameCount);
        if (in->releaseReadBuffer(region, regionFrameCount) != OK) {
            break;
        }
        done += regionFrameCount;
    }
    return static_cast<ssize_t>(done);
}

ssize_t VolumeMixer::process(size_t frameCount) {
    if (mOutputBuffer == nullptr || mInputBuffer == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, output buffer or input buffer is not ready", __func__);
        return -ENODEV;
    }
    return fillOutput(frameCount, OnRefusal::kStatus, [this](void* region, size_t regionFrames) {
        return mix(region, regionFrames, mInputBuffer);
    });
}

ssize_t VolumeMixer::process(void* buffer, size_t frameCount) {
    if (mType != VOLUMER_TYPE_PROCESS) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Unsupported volume processing type %d",
                            __func__, mType);
        return -ENOSYS;
    }
    return mix(buffer, frameCount, buffer);
}

}  // namespace android
