#include "tools/audio/FrameSource.h"

#include <algorithm>
#include <cstring>

namespace android {

namespace {

template <typename Sample>
float peakOf(const Sample* samples, size_t sampleCount, float fullScale) {
    Sample lowest = 0;
    Sample highest = 0;
    for (size_t i = 0; i < sampleCount; ++i) {
        lowest = std::min(lowest, samples[i]);
        highest = std::max(highest, samples[i]);
    }
    return std::max(-static_cast<float>(lowest), static_cast<float>(highest)) / fullScale;
}

}  // namespace

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
    const size_t given = mHandover.config.format == 1
                             ? next(static_cast<int16_t*>(out), mDecoded16, wanted, 32768.0f)
                             : next(static_cast<int32_t*>(out), mDecodedQ27, wanted, 134217728.0f);
    mAudioFramesRead += static_cast<int64_t>(given);
    return given;
}

template <typename Sample>
size_t FrameSource::next(Sample* out, std::vector<Sample>& decoded, size_t frameCount,
                         float fullScale) {
    const size_t inChannels = mReader.channelCount();
    size_t given = 0;
    if (inChannels == mHandover.channelCount) {
        given = decode(out, frameCount);
    } else {
        decoded.resize(frameCount * inChannels);
        given = decode(decoded.data(), frameCount);
        arrange(decoded.data(), out, given);
    }
    measure(out, given, fullScale);
    return given;
}

/** Frames of the file in its own channels, from its start again as often as it is to be played. */
template <typename Sample>
size_t FrameSource::decode(Sample* out, size_t frameCount) {
    while (frameCount > 0) {
        const size_t decoded = read(out, frameCount);
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

size_t FrameSource::read(int16_t* out, size_t frameCount) {
    if (mReader.fits16Bits()) {
        return mReader.read16(out, frameCount);
    }
    // As the library does it where it narrows a stream: cut, not rounded, then held to the range.
    mDecodedQ27.resize(frameCount * mReader.channelCount());
    const size_t framesRead = mReader.readQ27(mDecodedQ27.data(), frameCount);
    const size_t sampleCount = framesRead * mReader.channelCount();
    int64_t clipped = 0;
    for (size_t i = 0; i < sampleCount; ++i) {
        const int32_t cut = mDecodedQ27[i] >> 12;
        const int32_t held = std::clamp(cut, -32768, 32767);
        clipped += held != cut ? 1 : 0;
        out[i] = static_cast<int16_t>(held);
    }
    mClippedCount += clipped;
    return framesRead;
}

size_t FrameSource::read(int32_t* out, size_t frameCount) {
    return mReader.readQ27(out, frameCount);
}

template <typename Sample>
void FrameSource::arrange(const Sample* decoded, Sample* out, size_t frameCount) const {
    const size_t inChannels = mReader.channelCount();
    const size_t outChannels = mHandover.channelCount;
    if (inChannels == 1 && outChannels == 2) {
        for (size_t frame = 0; frame < frameCount; ++frame) {
            out[2 * frame] = decoded[frame];
            out[2 * frame + 1] = decoded[frame];
        }
        return;
    }
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
    const int64_t rateHz = mHandover.config.sample_rate;
    int64_t frame = mExtent.silentFrames + mAudioFramesRead;
    const int64_t endFrame = frame + static_cast<int64_t>(frameCount);
    while (frame < endFrame) {
        // The frames that fall into the same window at once.
        const int64_t window = frame * kPeaksPerSecond / rateHz;
        const int64_t nextWindow = ((window + 1) * rateHz + kPeaksPerSecond - 1) / kPeaksPerSecond;
        const int64_t count = std::min(nextWindow, endFrame) - frame;
        if (static_cast<size_t>(window) >= mPeaks.size()) {
            mPeaks.resize(static_cast<size_t>(window) + 1);
        }
        float& peak = mPeaks[static_cast<size_t>(window)];
        peak = std::max(peak, peakOf(samples, static_cast<size_t>(count) * channels, fullScale));
        samples += static_cast<size_t>(count) * channels;
        frame += count;
    }
}

}  // namespace android
