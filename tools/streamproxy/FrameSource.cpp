#include "tools/streamproxy/FrameSource.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace android {

FrameSource::FrameSource(AudioInput& reader, const Handover& handover, const Extent& extent)
    : mReader(reader),
      mHandover(handover),
      mExtent(extent),
      mAudioFrames(reader.frameCount() < 0 ? INT64_MAX : reader.frameCount() * extent.loopCount),
      mSilentFramesLeft(extent.silentFrames),
      mLoopsLeft(extent.loopCount) {
    if (extent.maxFrames >= 0) {
        mAudioFrames = std::min(mAudioFrames, extent.maxFrames);
    }
}

size_t FrameSource::next(void* out, size_t frameCount) {
    if (mSilentFramesLeft > 0) {
        const auto silent = std::min(frameCount, static_cast<size_t>(mSilentFramesLeft));
        memset(out, 0, silent * mHandover.frameBytes());
        mSilentFramesLeft -= static_cast<int64_t>(silent);
        return silent;
    }
    const int64_t left = mAudioFrames - mAudioFramesRead;
    const size_t wanted = std::min(frameCount, static_cast<size_t>(std::max<int64_t>(left, 0)));
    const size_t decoded = decode(wanted);
    if (mHandover.config.format == 1) {
        auto* samples = static_cast<int16_t*>(out);
        arrange(mDecoded16, samples, decoded);
        measure(samples, decoded, 32768.0f);
    } else {
        auto* samples = static_cast<int32_t*>(out);
        arrange(mDecodedQ27, samples, decoded);
        measure(samples, decoded, 134217728.0f);
    }
    mAudioFramesRead += static_cast<int64_t>(decoded);
    return decoded;
}

/** Frames of the file, in its own channels, into the vector of the handed-over sample size. */
size_t FrameSource::decode(size_t frameCount) {
    const size_t sampleCount = frameCount * mReader.channelCount();
    const bool is16 = mHandover.config.format == 1;
    while (frameCount > 0) {
        size_t decoded = 0;
        if (is16 && mReader.fits16Bits()) {
            mDecoded16.resize(sampleCount);
            decoded = mReader.read16(mDecoded16.data(), frameCount);
        } else {
            mDecodedQ27.resize(sampleCount);
            decoded = mReader.readQ27(mDecodedQ27.data(), frameCount);
            if (is16) {
                narrow(decoded * mReader.channelCount());
            }
        }
        mFramesThisTime += static_cast<int64_t>(decoded);
        if (decoded > 0) {
            return decoded;
        }
        if (mFramesThisTime == 0 || --mLoopsLeft <= 0) {
            return 0;
        }
        mReader.rewind();
        mFramesThisTime = 0;
    }
    return 0;
}

/** As the library does it where it narrows a stream: cut, not rounded, then held to the range. */
void FrameSource::narrow(size_t sampleCount) {
    mDecoded16.resize(sampleCount);
    for (size_t i = 0; i < sampleCount; ++i) {
        const int32_t cut = mDecodedQ27[i] >> 12;
        const int32_t held = std::clamp(cut, -32768, 32767);
        mClippedCount += held != cut ? 1 : 0;
        mDecoded16[i] = static_cast<int16_t>(held);
    }
}

template <typename Sample>
void FrameSource::arrange(const std::vector<Sample>& decoded, Sample* out,
                          size_t frameCount) const {
    const size_t inChannels = mReader.channelCount();
    const size_t outChannels = mHandover.channelCount;
    for (size_t frame = 0; frame < frameCount; ++frame) {
        for (size_t channel = 0; channel < outChannels; ++channel) {
            out[frame * outChannels + channel] =
                decoded[frame * inChannels + std::min(channel, inChannels - 1)];
        }
    }
}

template <typename Sample>
void FrameSource::measure(const Sample* samples, size_t frameCount, float fullScale) {
    const size_t channels = mHandover.channelCount;
    const int64_t firstFrame = mExtent.silentFrames + mAudioFramesRead;
    for (size_t frame = 0; frame < frameCount; ++frame) {
        const auto window = static_cast<size_t>((firstFrame + static_cast<int64_t>(frame)) *
                                                kPeaksPerSecond / mHandover.config.sample_rate);
        if (window >= mPeaks.size()) {
            mPeaks.resize(window + 1);
        }
        for (size_t channel = 0; channel < channels; ++channel) {
            const float level =
                std::abs(static_cast<float>(samples[frame * channels + channel]) / fullScale);
            mPeaks[window] = std::max(mPeaks[window], level);
        }
    }
}

}  // namespace android
