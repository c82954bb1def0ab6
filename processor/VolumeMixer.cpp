#include "processor/VolumeMixer.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "android/log.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_volumemixer";
constexpr int kGainFractionBits = 12;  // U4.12
constexpr int kRampFractionBits = 28;  // U4.28
constexpr int kRampShift = kRampFractionBits - kGainFractionBits;
constexpr float kUnityGain = 1 << kGainFractionBits;

size_t frameSizeOf(audio_format_t format, unsigned int channelMask) {
    return audio_channel_count_from_out_mask(channelMask) * audio_bytes_per_sample(format);
}

// Signed sums and products that wrap around, as the fixed-point format wants them.
int wrappingAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
int wrappingMultiply(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/** A sample at the precision of the product: Q0.15, or Q4.15 from Q4.27. */
template <typename TI>
int toProductInput(TI sample) {
    if constexpr (std::is_same_v<TI, short>) {
        return sample;
    } else {
        return sample >> 12;
    }
}

/** A product (Q4.27) as an output sample. */
template <typename TO>
TO fromProduct(int product) {
    if constexpr (std::is_same_v<TO, int>) {
        return product;
    } else {
        return static_cast<short>(std::clamp(product >> 12, -32768, 32767));
    }
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

VolumeMixer::VolumeOp VolumeMixer::volumeOp(audio_format_t src, audio_format_t dst,
                                            volumer_type_t type) {
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
    static constexpr VolumeOp kOps[2][2][2] = {
        // type, 32-bit source, 32-bit destination
        {{volumeMix<0, 2, short, short, int>, volumeMix<0, 2, int, short, int>},
         {volumeMix<0, 2, short, int, int>, volumeMix<0, 2, int, int, int>}},
        {{volumeMix<2, 2, short, short, int>, volumeMix<2, 2, int, short, int>},
         {volumeMix<2, 2, short, int, int>, volumeMix<2, 2, int, int, int>}},
    };
    return kOps[type][src == AUDIO_FORMAT_PCM_32_BIT ? 1 : 0]
               [dst == AUDIO_FORMAT_PCM_32_BIT ? 1 : 0];
}

status_t VolumeMixer::setVolume(float left, float right) {
    const Mutex::Autolock lock(mLock);
    if (!(left >= 0.0F && left <= 1.0F)) {
        return -EINVAL;
    }
    // A negative gain would invert the channel and a NaN has no meaning to a listener: the right
    // gain is held to the range instead of being refused, so that the status tells of the left.
    const float heldRight = std::isnan(right) ? 0.0F : std::clamp(right, 0.0F, 1.0F);
    if (left != mVolume[0] || heldRight != mVolume[1]) {
        mVolume[0] = left;
        mVolume[1] = heldRight;
        mVolumeChanged.store(true, std::memory_order_relaxed);
    }
    return OK;
}

void VolumeMixer::getVolume(float& left, float& right) {
    const Mutex::Autolock lock(mLock);
    left = mVolume[0];
    right = mVolume[1];
}

void VolumeMixer::ramp(bool enable) {
    mRampEnabled.store(enable, std::memory_order_relaxed);
}

void VolumeMixer::setVolumeRampVariables() {
    const Mutex::Autolock lock(mLock);
    if (!mVolumeChanged.load(std::memory_order_relaxed)) {
        return;
    }
    mVolumeChanged.store(false, std::memory_order_relaxed);
    for (int i = 0; i < 2; ++i) {
        const int gain = static_cast<int>(std::min(mVolume[i] * kUnityGain, kUnityGain));
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
           (mVolumeChanged.load(std::memory_order_relaxed) || mVolumeInc[0] != 0 ||
            mVolumeInc[1] != 0);
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

template <int MixType, int ChannelCount, typename TO, typename TI, typename TV>
void VolumeMixer::volumeMix(void* out, size_t frameCount, const void* in, bool ramp, TV* prevVolume,
                            TV* volumeInc, short* volume) {
    auto* target = static_cast<TO*>(out);
    const auto* source = static_cast<const TI*>(in);
    const auto store = [](TO& sample, TO gained) {
        if constexpr (MixType == 0) {
            sample = static_cast<TO>(wrappingAdd(sample, gained));
        } else {
            sample = gained;
        }
    };
    constexpr size_t kChannels = ChannelCount;
    // Gains and positions in locals: a sample that is written may not be seen to change them, or
    // the loops would go sample by sample.
    if (!ramp) {
        short gain[kChannels];
        std::copy_n(volume, kChannels, gain);
        for (size_t frame = 0; frame < frameCount; ++frame) {
            for (size_t i = 0; i < kChannels; ++i) {
                const size_t at = frame * kChannels + i;
                store(target[at],
                      fromProduct<TO>(wrappingMultiply(toProductInput(source[at]), gain[i])));
            }
        }
        return;
    }
    TV position[kChannels];
    TV increment[kChannels];
    std::copy_n(prevVolume, kChannels, position);
    std::copy_n(volumeInc, kChannels, increment);
    for (size_t frame = 0; frame < frameCount; ++frame) {
        for (size_t i = 0; i < kChannels; ++i) {
            const size_t at = frame * kChannels + i;
            const int gain = position[i] >> kRampShift;
            store(target[at], fromProduct<TO>(wrappingMultiply(toProductInput(source[at]), gain)));
            position[i] = wrappingAdd(position[i], increment[i]);
        }
    }
    std::copy_n(position, kChannels, prevVolume);
    adjustVolumeRamp(prevVolume, volumeInc, volume);
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

template void VolumeMixer::volumeMix<0, 2, short, short, int>(void*, size_t, const void*, bool,
                                                              int*, int*, short*);
template void VolumeMixer::volumeMix<0, 2, int, short, int>(void*, size_t, const void*, bool, int*,
                                                            int*, short*);
template void VolumeMixer::volumeMix<0, 2, short, int, int>(void*, size_t, const void*, bool, int*,
                                                            int*, short*);
template void VolumeMixer::volumeMix<0, 2, int, int, int>(void*, size_t, const void*, bool, int*,
                                                          int*, short*);
template void VolumeMixer::volumeMix<2, 2, short, short, int>(void*, size_t, const void*, bool,
                                                              int*, int*, short*);
template void VolumeMixer::volumeMix<2, 2, int, short, int>(void*, size_t, const void*, bool, int*,
                                                            int*, short*);
template void VolumeMixer::volumeMix<2, 2, short, int, int>(void*, size_t, const void*, bool, int*,
                                                            int*, short*);
template void VolumeMixer::volumeMix<2, 2, int, int, int>(void*, size_t, const void*, bool, int*,
                                                          int*, short*);

}  // namespace android
