#include "pipeline/MixerThread.h"

#include <algorithm>
#include <cerrno>

#include "android/log.h"
#include "processor/VolumeMixer.h"
#include "stream/ConversionChain.h"
#include "stream/DumpText.h"

namespace android {

namespace {

constexpr const char* kTag = "mixer_thread";
constexpr uint32_t kDefaultSampleRate = 44100;
// The rates between which the resampler converts: at others a stream could not follow a change of
// the mix, and would play its former rate into it.
constexpr uint32_t kMinSampleRate = 4000;
constexpr uint32_t kMaxSampleRate = 768000;

/** About 20 ms. At 44100 Hz a cycle is 900 frames. */
uint32_t framesPerCycle(uint32_t sampleRate) {
    return sampleRate == 44100 ? 900 : static_cast<uint32_t>(uint64_t{sampleRate} * 20 / 1000);
}

/** Streams can be converted to this output. */
bool isReachable(const AudioOutput& output) {
    return VolumeMixer::isFormatSupported(output.mFormat, output.mFormat) &&
           VolumeMixer::isChannelSupported(output.mChannelMask) &&
           output.mSampleRate >= kMinSampleRate && output.mSampleRate <= kMaxSampleRate;
}

}  // namespace

MixerThread::MixerThread() : AudioThread(String8("MixerThread")) {
    const ThreadLock::Autolock lock(mLock);
    set(kDefaultSampleRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
        framesPerCycle(kDefaultSampleRate));
}

MixerThread::~MixerThread() {
    // The worker's own reference is gone, so no cycle uses the buffer any more.
    const ThreadLock::Autolock lock(mLock);
    mMixBuffer.clear();
}

status_t MixerThread::initCheck() {
    const ThreadLock::Autolock lock(mLock);
    return mMixBuffer->validate() ? startStatus() : -ENOMEM;
}

void MixerThread::set(unsigned int sampleRate, audio_format_t format, unsigned int channelMask,
                      unsigned int frameCount) {
    adopt_l(sampleRate, format, channelMask, frameCount,
            new FrameBuffer(format, channelMask, frameCount, false, 0, 0));
}

void MixerThread::adopt_l(unsigned int sampleRate, audio_format_t format, unsigned int channelMask,
                          unsigned int frameCount, const sp<FrameBuffer>& mixBuffer) {
    mSampleRate = sampleRate;
    mFormat = format;
    mChannelMask = channelMask;
    mFrameCount = frameCount;
    mFrameSize = mixBuffer->mFrameSize;
    mMixBuffer = mixBuffer;
}

bool MixerThread::match(const sp<AudioOutput>& output) {
    const ThreadLock::Autolock lock(mLock);
    return output != nullptr && match_l(output);
}

bool MixerThread::match_l(const sp<AudioOutput>& output) const {
    return output->mSampleRate == mSampleRate && output->mFormat == mFormat &&
           output->mChannelMask == mChannelMask;
}

int MixerThread::addStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    uint32_t sampleRate = 0;
    audio_format_t format = AUDIO_FORMAT_DEFAULT;
    uint32_t channelMask = 0;
    {
        const ThreadLock::Autolock lock(mLock);
        sampleRate = mSampleRate;
        format = mFormat;
        channelMask = mChannelMask;
    }
    // Without the lock: building a chain takes longer than a cycle may wait.
    const int status = stream->config(sampleRate, format, channelMask);
    return status != OK ? status : AudioThread::addStream(stream);
}

int MixerThread::removeStream(sp<AudioStream> stream) {
    return AudioThread::removeStream(stream);
}

int MixerThread::registerOutput(sp<AudioOutput> output) {
    if (output == nullptr) {
        return -EINVAL;
    }
    {
        const ThreadLock::Autolock lock(mLock);
        for (const sp<AudioOutput>& listed : mOutputs) {
            if (!listed->match(output)) {
                return -EINVAL;
            }
        }
        if (mIncomplete || !match_l(output)) {
            const int status = reconfigure_l(output);
            if (status != OK) {
                return status;
            }
        }
    }
    return AudioThread::registerOutput(output);
}

int MixerThread::reconfigure_l(const sp<AudioOutput>& output) {
    const uint32_t frameCount = framesPerCycle(output->mSampleRate);
    // An output that streams can't be converted to would leave their former chains writing frames
    // of another size into the mix.
    if (!isReachable(*output)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, unsupported output: sample rate %u, format %x, channel mask %x",
                            "registerOutput", output->mSampleRate, output->mFormat,
                            output->mChannelMask);
        return -EINVAL;
    }
    const sp<FrameBuffer> mixBuffer(
        new FrameBuffer(output->mFormat, output->mChannelMask, frameCount, false, 0, 0));
    if (!mixBuffer->validate()) {
        return -ENOMEM;
    }
    adopt_l(output->mSampleRate, output->mFormat, output->mChannelMask, frameCount, mixBuffer);
    mIncomplete = false;
    for (const sp<AudioStream>& stream : mStreams) {
        // One that can't be converted stays silent for good; one without memory has another chance.
        mIncomplete |=
            stream->config(output->mSampleRate, output->mFormat, output->mChannelMask) == -ENOMEM;
    }
    return mIncomplete ? -ENOMEM : OK;
}

int64_t MixerThread::computeSleepTimeNs_l() {
    if (mSampleRate == 0) {
        return AudioThread::computeSleepTimeNs_l();
    }
    const auto cycleMs = static_cast<int64_t>(mFrameCount * 1000 / mSampleRate);
    return (cycleMs >> 1) * 1'000'000;
}

ssize_t MixerThread::threadLoopProcess_l() {
    for (const sp<AudioStream>& stream : mStreams) {
        if (stream->isOpened()) {
            mOpened.add(stream);
        }
    }
    if (mOpened.isEmpty()) {
        return -EINVAL;
    }
    mMixBuffer->reset();
    // No stream's last stage may move the write position: all of them add into the same region.
    mMixBuffer->disallow(FRAME_BUFFER_RELEASE_WRITE);
    const int frameCount = mixStreams_l();
    mMixBuffer->allow(FRAME_BUFFER_RELEASE_WRITE);
    mOpened.clear();
    if (frameCount < 1) {
        return frameCount;
    }
    mMixBuffer->releaseWriteBuffer(nullptr, static_cast<size_t>(frameCount));
    deliver_l(frameCount);
    return frameCount;
}

int MixerThread::mixStreams_l() {
    int frameCount = static_cast<int>(mFrameCount);
    for (size_t i = 0; i < mOpened.size(); ++i) {
        const int processed =
            mOpened[i]->process(mMixBuffer, static_cast<size_t>(static_cast<ssize_t>(frameCount)));
        if (processed < frameCount && processed != 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "%s, stream %d processed %d frames, but %d required",
                                "threadLoopProcess_l", static_cast<int>(i), processed, frameCount);
        }
        frameCount = std::min(frameCount, processed);
    }
    return frameCount;
}

void MixerThread::deliver_l(int frameCount) {
    size_t remaining = static_cast<size_t>(frameCount);
    while (remaining > 0) {
        void* chunk = nullptr;
        size_t chunkFrameCount = remaining;
        const status_t status = mMixBuffer->obtainReadBuffer(&chunk, chunkFrameCount);
        if (status != OK || chunkFrameCount == 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "%s, fail to obtain buffer %d or no data available",
                                "threadLoopProcess_l", status);
            return;
        }
        notifyDataMixed_l(chunk, chunkFrameCount * mFrameSize);
        mMixBuffer->releaseReadBuffer(chunk, chunkFrameCount);
        remaining -= chunkFrameCount;
    }
}

void MixerThread::notifyDataMixed_l(void* buffer, size_t byteCount) {
    for (const sp<AudioOutput>& listed : mOutputs) {
        const sp<AudioOutput> output(listed);
        output->onDataProcessed(buffer, byteCount);
    }
}

int MixerThread::dump(int fd) {
    Vector<sp<AudioStream>> streams;
    PcmConfig mix = {};
    {
        const ThreadLock::Autolock lock(mLock);
        mix = {mSampleRate, mFormat, mChannelMask};
        streams = mStreams;
    }
    String8 text;
    text.appendFormat("MixerThread:    %p\n", static_cast<void*>(this));
    text.appendFormat("Sample Rate:    %d\n", static_cast<int>(mix.sampleRate));
    text.appendFormat("Format:         0x%x\n", mix.format);
    text.appendFormat("Channel Mask:   0x%x\n", mix.channelMask);
    // Written without the lock: whoever stops reading the other end must not stop the mixer.
    writeDumpText(fd, text);
    for (const sp<AudioStream>& stream : streams) {
        stream->dump(fd);
    }
    return OK;
}

}  // namespace android
