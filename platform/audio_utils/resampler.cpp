#include <audio_utils/resampler.h>

#include <cerrno>
#include <new>

#include "SincResampler.h"

namespace {

using android::SincResampler;

constexpr uint32_t kMinRateHz = 4000;
constexpr uint32_t kMaxRateHz = 768000;
constexpr uint32_t kMaxChannels = 8;
constexpr uint32_t kMaxQuality = 10;
constexpr uint64_t kNsPerSecond = 1'000'000'000;

struct Converter final : resampler_itfe {
    Converter(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount)
        : resampler_itfe{&resetSignal, &resample, &latencyNs},
          sinc(inRateHz, outRateHz, channelCount),
          delayNs(static_cast<int32_t>(sinc.latencyFrames() * kNsPerSecond / inRateHz)) {}

    static void resetSignal(resampler_itfe* self);
    static int resample(resampler_itfe* self, int16_t* in, size_t* inFrameCount, int16_t* out,
                        size_t* outFrameCount);
    static int32_t latencyNs(resampler_itfe* self);

    SincResampler sinc;
    const int32_t delayNs;
};

void Converter::resetSignal(resampler_itfe* self) {
    if (self != nullptr) {
        static_cast<Converter*>(self)->sinc.reset();
    }
}

int Converter::resample(resampler_itfe* self, int16_t* in, size_t* inFrameCount, int16_t* out,
                        size_t* outFrameCount) {
    if (self == nullptr || in == nullptr || inFrameCount == nullptr || out == nullptr ||
        outFrameCount == nullptr) {
        if (inFrameCount != nullptr) {
            *inFrameCount = 0;
        }
        if (outFrameCount != nullptr) {
            *outFrameCount = 0;
        }
        return -EINVAL;
    }
    static_cast<Converter*>(self)->sinc.convert(in, *inFrameCount, out, *outFrameCount);
    return 0;
}

int32_t Converter::latencyNs(resampler_itfe* self) {
    return self == nullptr ? 0 : static_cast<Converter*>(self)->delayNs;
}

bool isRateSupported(uint32_t rateHz) {
    return rateHz >= kMinRateHz && rateHz <= kMaxRateHz;
}

}  // namespace

int create_resampler(uint32_t inSampleRate, uint32_t outSampleRate, uint32_t channelCount,
                     uint32_t quality, resampler_buffer_provider* provider,
                     resampler_itfe** resampler) {
    if (resampler == nullptr) {
        return -EINVAL;
    }
    *resampler = nullptr;
    if (!isRateSupported(inSampleRate) || !isRateSupported(outSampleRate) || channelCount == 0 ||
        channelCount > kMaxChannels || quality > kMaxQuality || provider != nullptr) {
        return -EINVAL;
    }
    try {
        *resampler = new Converter(inSampleRate, outSampleRate, channelCount);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return 0;
}

void release_resampler(resampler_itfe* resampler) {
    delete static_cast<Converter*>(resampler);
}
