#include "pipeline/MixerThread.h"

#include <algorithm>
#include <cerrno>

#include "android/log.h"
#include "interface/streamproxy.h"
#include "pipeline/BlockLength.h"
#include "processor/VolumeMixer.h"
#include "stream/ConversionChain.h"
#include "stream/DumpText.h"
#include "utils/Timers.h"

namespace android {

namespace {

constexpr const char* kTag = "mixer_thread";
constexpr uint32_t kDefaultSampleRate = 44100;
// Ten blocks: no working callback takes that long.
constexpr nsecs_t kCallbackPatienceNs = 200'000'000;

/** Streams can be converted to this output. At a rate that the resampler refuses, a stream could
 *  not follow a change of the mix, and would play its former rate into it. */
bool isReachable(const AudioOutput& output) {
    return VolumeMixer::isFormatSupported(output.mFormat, output.mFormat) &&
           VolumeMixer::isChannelSupported(output.mChannelMask) &&
           output.mSampleRate >= STREAMPROXY_MIN_SAMPLE_RATE &&
           output.mSampleRate <= STREAMPROXY_MAX_SAMPLE_RATE;
}

}  // namespace

MixerThread::MixerThread() : AudioThread(String8("MixerThread")) {
    const ThreadLock::Autolock lock(mLock);
    set(kDefaultSampleRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
        blockFrames(kDefaultSampleRate));
}

MixerThread::~MixerThread() {
    // The worker has dropped its reference, so no cycle uses the buffer any more.
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
    const Mutex::Autolock lock(mMixLock);
    mMix = {sampleRate, format, channelMask};
}

bool MixerThread::match(const sp<AudioOutput>& output) {
    const PcmConfig now = mix();
    return output != nullptr && output->mSampleRate == now.sampleRate &&
           output->mFormat == now.format && output->mChannelMask == now.channelMask;
}

PcmConfig MixerThread::mix() {
    const Mutex::Autolock lock(mMixLock);
    return mMix;
}

int MixerThread::addStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    const PcmConfig target = mix();
    const int status = stream->config(target.sampleRate, target.format, target.channelMask);
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
        const Mutex::Autolock lock(mListLock);
        for (AudioOutput* const listed : mListedOutputs) {
            if (!listed->match(output)) {
                return -EINVAL;
            }
        }
        if (mIncomplete || !match(output)) {
            const int status = reconfigure_l(output);
            if (status != OK) {
                return status;
            }
        }
    }
    return AudioThread::registerOutput(output);
}

int MixerThread::reconfigure_l(const sp<AudioOutput>& output) {
    const uint32_t frameCount = blockFrames(output->mSampleRate);
    // With an output that streams can't be converted to, their former chains would write frames of
    // another size into the mix.
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
    // No output is listed: nothing is mixed, so the worker cannot be late.
    const ThreadLock::Autolock lock(mLock);
    adopt_l(output->mSampleRate, output->mFormat, output->mChannelMask, frameCount, mixBuffer);
    mIncomplete = false;
    for (AudioStream* const stream : mListedStreams) {
        // A stream that can't be converted stays silent; one without memory gets another chance.
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
    // No stream may move the write position: all of them add into the same region.
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

// A stream that is paused or closed from now on counts as closed before this cycle, even if it opens
// again at once: if it counted as empty, the others would lose this block.
int MixerThread::mixStreams_l() {
    int frameCount = static_cast<int>(mFrameCount);
    int mixedCount = 0;
    for (const sp<AudioStream>& stream : mOpened) {
        const uint32_t closingCount = stream->closingCount();
        if (!stream->isOpened()) {
            continue;
        }
        const int processed =
            stream->process(mMixBuffer, static_cast<size_t>(static_cast<ssize_t>(frameCount)));
        if (processed < 1 && (!stream->isOpened() || stream->closingCount() != closingCount)) {
            continue;  // it has added nothing
        }
        if (processed < frameCount && processed != 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "%s, stream %d processed %d frames, but %d required",
                                "threadLoopProcess_l", mixedCount, processed, frameCount);
        }
        frameCount = std::min(frameCount, processed);
        ++mixedCount;
    }
    return mixedCount > 0 ? frameCount : -EINVAL;
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
    for (size_t i = 0; i < mOutputs.size(); ++i) {
        const sp<AudioOutput> output(mOutputs[i]);
        mCallbackWatch.enter(i);
        output->onDataProcessed(buffer, byteCount);
        mCallbackWatch.leave();
    }
}

int MixerThread::dump(int fd) {
    Vector<sp<AudioStream>> streams;
    const PcmConfig now = mix();
    {
        const Mutex::Autolock lock(mListLock);
        for (AudioStream* const stream : mListedStreams) {
            streams.add(stream);
        }
    }
    String8 text;
    text.appendFormat("MixerThread:    %p\n", static_cast<void*>(this));
    text.appendFormat("Sample Rate:    %d\n", static_cast<int>(now.sampleRate));
    text.appendFormat("Format:         0x%x\n", now.format);
    text.appendFormat("Channel Mask:   0x%x\n", now.channelMask);
    writeDumpText(fd, text);
    CallbackWatch::Visit visit = {};
    if (mCallbackWatch.outlasts(kCallbackPatienceNs, visit)) {
        const nsecs_t lastedNs = systemTime(SYSTEM_TIME_MONOTONIC) - visit.startNs;
        String8 line;
        line.appendFormat("In Callback:    output %zu, for %lld ms\n", visit.output,
                          static_cast<long long>(lastedNs / 1'000'000));
        writeDumpText(fd, line);
    }
    for (const sp<AudioStream>& stream : streams) {
        stream->dump(fd);
    }
    return OK;
}

}  // namespace android
