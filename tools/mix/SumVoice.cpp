#include "tools/mix/SumVoice.h"

#include <algorithm>

namespace android {

namespace {

constexpr int kGainBits = 12;
constexpr int kRampBits = 16;  // of a gain on its walk, below those

resampler_itfe* converterOf(const Handover& handover) {
    resampler_itfe* converter = nullptr;
    if (handover.isConverted()) {
        create_resampler(handover.config.sample_rate, handover.mixRateHz, 2, 0, nullptr,
                         &converter);
    }
    return converter;
}

}  // namespace

void SumVoice::Gain::set(float gain, int64_t rampFrames) {
    target = static_cast<int32_t>(std::min(gain * 4096.0f, 4096.0f));
    step = static_cast<int32_t>(((target << kRampBits) - now) / rampFrames);
    now = step == 0 ? target << kRampBits : now;
}

void SumVoice::Gain::walk(int64_t frameCount) {
    now += static_cast<int32_t>(step * frameCount);
    const int32_t next = (now + step) >> kRampBits;
    if ((step > 0 && next >= target) || (step < 0 && next <= target)) {
        step = 0;
        now = target << kRampBits;
    }
}

SumVoice::SumVoice(const Handover& handover)
    : mHandover(handover), mConverter(converterOf(handover)) {}

void SumVoice::handOver(const void* frames, int64_t frameCount) {
    const std::lock_guard lock(mLock);
    if (mConverter == nullptr) {
        append(frames, frameCount);
        return;
    }
    const auto keptSamples = static_cast<std::ptrdiff_t>(mFrames.size());
    append(frames, frameCount);
    mOwn.resize(static_cast<size_t>(frameCount) * 2);
    std::transform(mFrames.begin() + keptSamples, mFrames.end(), mOwn.begin(), [](int32_t sample) {
        return static_cast<int16_t>(std::clamp(sample, -32768, 32767));
    });
    mFrames.resize(static_cast<size_t>(keptSamples));
    convert(frameCount);
}

/** Two channels of them, as the library takes them: the first two, and one on the left alone. */
void SumVoice::append(const void* frames, int64_t frameCount) {
    const size_t channels = mHandover.channelCount;
    const auto* narrow = static_cast<const int16_t*>(frames);
    const auto* wide = static_cast<const int32_t*>(frames);
    const bool isNarrow = mHandover.sampleBytes() == 2;
    const size_t begin = mFrames.size();
    mFrames.resize(begin + static_cast<size_t>(frameCount) * 2);
    for (size_t i = 0; i < static_cast<size_t>(frameCount) * 2; ++i) {
        const size_t index = i / 2 * channels + i % 2;
        const bool isThere = i % 2 < channels;
        mFrames[begin + i] = !isThere ? 0 : isNarrow ? narrow[index] : wide[index] >> 12;
    }
}

void SumVoice::convert(int64_t frameCount) {
    int64_t done = 0;
    while (done < frameCount) {
        auto taken = static_cast<size_t>(frameCount - done);
        size_t made = taken * mHandover.mixRateHz / mHandover.config.sample_rate + 64;
        mConverted.resize(made * 2);
        mConverter->resample_from_input(mConverter.get(), mOwn.data() + done * 2, &taken,
                                        mConverted.data(), &made);
        mFrames.insert(mFrames.end(), mConverted.begin(),
                       mConverted.begin() + static_cast<std::ptrdiff_t>(made * 2));
        if (taken == 0) {
            return;
        }
        done += static_cast<int64_t>(taken);
    }
}

void SumVoice::setGain(float left, float right) {
    mGains[0].set(left, mHandover.bufferFrames);
    mGains[1].set(right, mHandover.bufferFrames);
}

bool SumVoice::addTo(int32_t* sums, int64_t frameCount) {
    const size_t sampleCount = static_cast<size_t>(frameCount) * 2;
    {
        const std::lock_guard lock(mLock);
        if (mFrames.size() - mTakenCount < sampleCount) {
            return false;
        }
        const auto begin = mFrames.begin() + static_cast<std::ptrdiff_t>(mTakenCount);
        mTaken.assign(begin, begin + static_cast<std::ptrdiff_t>(sampleCount));
        mTakenCount += sampleCount;
        if (mTakenCount * 2 > mFrames.size()) {  // moves each sample once at most
            mFrames.erase(mFrames.begin(),
                          mFrames.begin() + static_cast<std::ptrdiff_t>(mTakenCount));
            mTakenCount = 0;
        }
    }
    const bool isSteady = mGains[0].step == 0 && mGains[1].step == 0;
    if (isSteady && (mConverter != nullptr || mHandover.sampleBytes() == 2)) {
        addSteady(sums, frameCount);
    } else {
        addWalking(sums, frameCount);
    }
    return true;
}

/** 16-bit samples and gains up to unity: 32 bits hold the products, and none is held. */
void SumVoice::addSteady(int32_t* sums, int64_t frameCount) {
    const int32_t left = mGains[0].target;
    const int32_t right = mGains[1].target;
    const int32_t* samples = mTaken.data();
    for (int64_t frame = 0; frame < frameCount; ++frame) {
        sums[frame * 2] += (samples[frame * 2] * left) >> kGainBits;
        sums[frame * 2 + 1] += (samples[frame * 2 + 1] * right) >> kGainBits;
    }
}

void SumVoice::addWalking(int32_t* sums, int64_t frameCount) {
    int64_t held = 0;
    for (size_t channel = 0; channel < 2; ++channel) {
        Gain& gain = mGains[channel];
        for (size_t frame = 0; frame < static_cast<size_t>(frameCount); ++frame) {
            const int32_t position = gain.now + gain.step * static_cast<int32_t>(frame);
            // 20 bits of a sample times 12 of a gain may need all of 32 and a sign.
            const int64_t product =
                int64_t{mTaken[frame * 2 + channel]} * (position >> kRampBits) >> kGainBits;
            const int64_t sample = std::clamp<int64_t>(product, -32768, 32767);
            held += sample != product ? 1 : 0;
            sums[frame * 2 + channel] += static_cast<int32_t>(sample);
        }
        gain.walk(frameCount);
    }
    mHeldCount += held;
}

}  // namespace android
