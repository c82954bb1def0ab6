#include "stream/AudioStream.h"

#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "android/log.h"
#include "buffer/FrameSize.h"
#include "stream/ConversionChain.h"
#include "stream/DumpText.h"
#include "sync/Futex.h"
#include "utils/String8.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_stream";
constexpr nsecs_t kWriteLimitNs = 999'999'999;
constexpr timespec kWriteWait = {.tv_sec = 0, .tv_nsec = 10'000'000};
constexpr timespec kCloseWait = {.tv_sec = 1, .tv_nsec = 0};

}  // namespace

AudioStream::AudioStream(uint32_t sampleRate, audio_format_t format, uint32_t channelMask,
                         audio_output_flags_t flags, size_t bufferFrameCount)
    : mSampleRate(sampleRate),
      mFormat(format),
      mChannelMask(channelMask),
      mFlags(flags),
      mBufferFrameCount(bufferFrameCount),
      mDstSampleRate(sampleRate),
      mDstFormat(format),
      mDstChannelMask(channelMask),
      mFrameSize(frameSizeOf(format, channelMask)),
      mInputBuffer(new FrameBuffer(format, channelMask, static_cast<uint32_t>(bufferFrameCount),
                                   false, 0, 0)),
      mAudioDump(
          new AudioDump("/data/misc/audioserver/", "audio_stream", "vendor.audio.hwsync.stream")) {}

AudioStream::~AudioStream() {
    const PriorityMutex::Autolock lock(mLock);
    mProcessers.clear();
}

int AudioStream::setVolume(float left, float right) {
    const Mutex::Autolock lock(mConfigLock);
    return mVolumeMixer != nullptr ? mVolumeMixer->setVolume(left, right) : -ENODEV;
}

uint32_t AudioStream::getLatency() {
    if (mSampleRate == 0) {
        return 0;
    }
    return static_cast<uint32_t>(mBufferFrameCount * 1000 / mSampleRate * 1000);
}

int AudioStream::setDownstreamLatency(unsigned long /*latencyMs*/, long /*offsetMs*/) {
    return -ENOSYS;
}

int AudioStream::setDownstreamLatencyOffset(long /*offsetMs*/) {
    return -ENOSYS;
}

int AudioStream::setParameters(const char* /*keyValuePairs*/) {
    return OK;
}

bool AudioStream::isOpened() const {
    return mActive.load(std::memory_order_acquire);
}

int AudioStream::open() {
    if (isRetired()) {
        return -ENODEV;
    }
    mActive.store(true, std::memory_order_release);
    return OK;
}

int AudioStream::pause() {
    // The count first: whoever sees the stream closed sees since when.
    mPauseCount.fetch_add(1, std::memory_order_release);
    mActive.store(false, std::memory_order_release);
    return OK;
}

int AudioStream::resume() {
    return OK;
}

template <typename IsNeeded>
int AudioStream::waitUntilDataConsumed_l(const timespec* timeout, IsNeeded isNeeded) {
    const int error =
        mConsumed.wait(isNeeded, [timeout](std::atomic<uint32_t>& word, uint32_t expected) {
            return Futex::waitWhile(word, expected, timeout);
        });
    if (error == 0 || error == EINTR || error == EAGAIN || error == ETIMEDOUT) {
        return OK;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to wait, errno: %d, %s", __func__, error,
                        strerror(error));
    return error;
}

int AudioStream::notifyDataConsumed_l() {
    return mConsumed.notify([this](std::atomic<uint32_t>& word) {
        // A write that is just ending may be asleep beside the close.
        return Futex::wake(word,
                           mCloserCount.load(std::memory_order_relaxed) > 0 ? Futex::kAll : 1);
    });
}

void AudioStream::wakeWriter() {
    mConsumed.notify([](std::atomic<uint32_t>& word) { return Futex::wake(word, Futex::kAll); });
}

void AudioStream::endWrite() {
    mCloseCount.fetch_add(1, std::memory_order_acq_rel);
    wakeWriter();
}

int AudioStream::close() {
    endWrite();
    if (mInputBuffer->availableToRead() > 0) {
        mCloserCount.fetch_add(1, std::memory_order_relaxed);
        waitUntilDataConsumed_l(&kCloseWait,
                                [this] { return mInputBuffer->availableToRead() > 0; });
        mCloserCount.fetch_sub(1, std::memory_order_relaxed);
    }
    endAndDiscard();
    return OK;
}

// A write that began before any of this finds that it is ended. One that begins later finds the stream
// closed, and waits for the end of this before it opens it.
void AudioStream::endAndDiscard() {
    const Mutex::Autolock closeLock(mCloseLock);
    mActive.store(false, std::memory_order_release);
    mDiscardCount.fetch_add(1, std::memory_order_acq_rel);
    endWrite();  // also one that began while the close waited
    const PriorityMutex::Autolock lock(mLock);
    discard_l();
}

int AudioStream::flush() {
    mFlushCount.fetch_add(1, std::memory_order_acq_rel);
    // A flush moves the consumer's side of the ring; under the lock the mixer is not reading it.
    const PriorityMutex::Autolock lock(mLock);
    discard_l();
    return OK;
}

void AudioStream::discard_l() {
    mLock.assertHeld();
    mInputBuffer->flush();
    for (const sp<AudioProcesser>& stage : mProcessers) {
        stage->discardInput();
    }
    if (mResampler != nullptr) {
        mResampler->reset();
    }
}

// Of the two changes of the count one comes first. If it is the close's, the writer sees it here and
// takes out what it placed since; if it is this one, which changes nothing, the close has acquired
// with it all that the writer placed, and has discarded it. The same with a flush.
void AudioStream::discardIfClosedSince(const WriteStart& start) {
    if (mDiscardCount.fetch_add(0, std::memory_order_acq_rel) != start.discardCount) {
        const PriorityMutex::Autolock lock(mLock);
        discard_l();
    }
}

void AudioStream::discardIfFlushedSince(uint32_t flushCount) {
    if (mFlushCount.fetch_add(0, std::memory_order_acq_rel) != flushCount) {
        const PriorityMutex::Autolock lock(mLock);
        discard_l();
    }
}

AudioStream::WriteStart AudioStream::now() const {
    return {mPauseCount.load(std::memory_order_acquire),
            mCloseCount.load(std::memory_order_acquire),
            mDiscardCount.load(std::memory_order_acquire)};
}

bool AudioStream::takeHostWrite() {
    return std::exchange(mIsHostWrite, false);
}

int AudioStream::openAndWrite(const void* data, size_t byteCount) {
    mIsHostWrite = true;
    return write(data, byteCount);
}

int AudioStream::write(const void* data, size_t byteCount) {
    const WriteStart start = now();
    const bool isHosts = takeHostWrite();
    const bool isEmpty = data == nullptr || byteCount == 0;
    if (!isOpened() && (isHosts || !isEmpty)) {
        // Not while a close is at its end, which would discard what comes and leave the stream open.
        const Mutex::Autolock lock(mCloseLock);
        if (!isPausedSince(start) && !isClosedSince(start)) {
            open();
        }
    }
    if (isEmpty) {
        return 0;
    }
    const size_t written = placeBytes(
        data, byteCount, [this, &start](nsecs_t& /*startNs*/) { return !isClosedSince(start); });
    discardIfClosedSince(start);
    return static_cast<int>(written);
}

bool AudioStream::waitForRoom(nsecs_t startNs) {
    if (systemTime(SYSTEM_TIME_MONOTONIC) - startNs > kWriteLimitNs) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, It costs too long (%d ms) to write",
                            "write", 1000);
        return false;
    }
    waitUntilDataConsumed_l(&kWriteWait, [this] {
        return !mInputBuffer->validate() || mInputBuffer->availableToWrite() == 0;
    });
    return true;
}

size_t AudioStream::wholeFrames(size_t byteCount) const {
    if (mFrameSize == 0) {
        return 0;
    }
    return std::min<size_t>(byteCount, std::numeric_limits<int32_t>::max()) / mFrameSize;
}

void AudioStream::logMissed(size_t byteCount) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s, some bytes (%lu) are missed", "write",
                        static_cast<unsigned long>(byteCount));
}

int AudioStream::read(void* data, size_t byteCount) {
    if (!isOpened()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, stream is not opened yet", __func__);
        return -ENODEV;
    }
    const PriorityMutex::Autolock lock(mLock);
    const int32_t frameCount = mInputBuffer->read(data, wholeFrames(byteCount));
    if (frameCount < 1) {
        return frameCount;
    }
    notifyDataConsumed_l();
    return static_cast<int>(static_cast<size_t>(frameCount) * mFrameSize);
}

int AudioStream::config(uint32_t sampleRate, audio_format_t format, uint32_t channelMask) try {
    // Built before the lock is taken: a pull under way need not wait for tables and buffers, and a
    // target that can't be reached leaves the former chain playing.
    ConversionChain chain = ConversionChain::build({mSampleRate, mFormat, mChannelMask},
                                                   {sampleRate, format, channelMask}, mInputBuffer,
                                                   static_cast<uint32_t>(mBufferFrameCount));
    if (chain.status == -ENOMEM) {
        return -ENOMEM;
    }
    if (chain.status != OK) {
        __android_log_print(
            ANDROID_LOG_WARN, kTag,
            "%s, do not support configuration, sample rate %u, format %x,  channel %x", __func__,
            sampleRate, format, channelMask);
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, that is for a stream of sample rate %u, format %x,  channel %x",
                            __func__, mSampleRate, mFormat, mChannelMask);
        return -EINVAL;
    }
    Gains lost = {1.0F, 1.0F};
    {
        const PriorityMutex::Autolock lock(mLock);
        std::swap(mProcessers, chain.processers);
        mResampler.swap(chain.resampler);
        mChainTarget = {sampleRate, format, channelMask};
        const Mutex::Autolock configLock(mConfigLock);
        mVolumeMixer.swap(chain.volumeMixer);
        if (chain.volumeMixer != nullptr) {
            chain.volumeMixer->getVolume(lost.left, lost.right);
        }
        mDstSampleRate = sampleRate;
        mDstFormat = format;
        mDstChannelMask = channelMask;
    }
    if (lost.left < 1.0F || lost.right < 1.0F) {
        // A listener hears the jump, and the host alone knows the gain that it wants.
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, the volume (%.3f, %.3f) is lost with the former chain; it is 1.0",
                            __func__, static_cast<double>(lost.left),
                            static_cast<double>(lost.right));
    }
    return OK;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int AudioStream::process(sp<FrameBuffer> output, size_t frameCount) {
    if (!isOpened()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, stream is not opened yet", __func__);
        return -ENODEV;
    }
    if (output == nullptr) {
        return -EINVAL;
    }
    const PriorityMutex::Autolock lock(mLock);
    // A chain that a failed reconfiguration left behind would write frames of another size.
    if (mProcessers.isEmpty() || !output->match(mChainTarget.format, mChainTarget.channelMask)) {
        return 0;
    }
    mProcessers[mProcessers.size() - 1]->setOutputBuffer(output);
    ssize_t processed = 0;
    for (const sp<AudioProcesser>& stage : mProcessers) {
        processed = stage->process(frameCount);
        // A negative status is a very large count here: it neither warns nor shortens the block.
        if (static_cast<size_t>(processed) < frameCount) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "%s, actually (%zu) frames processed by (%s), which is less than "
                                "required frame (%zu)",
                                __func__, static_cast<size_t>(processed), stage->name().c_str(),
                                frameCount);
            frameCount = static_cast<size_t>(processed);
        }
    }
    if (processed != 0) {
        notifyDataConsumed_l();
    }
    return static_cast<int>(processed);
}

int AudioStream::dump(int fd) try {
    PcmConfig target{};
    {
        const Mutex::Autolock lock(mConfigLock);
        target = {mDstSampleRate, mDstFormat, mDstChannelMask};
    }
    String8 text;
    text.appendFormat("AudioStream:     %p\n", static_cast<void*>(this));
    text.appendFormat("Active:          %d\n", isOpened() ? 1 : 0);
    text.appendFormat("Sample Rate:     %d\n", static_cast<int>(mSampleRate));
    text.appendFormat("Format:          0x%x\n", mFormat);
    text.appendFormat("Flags:           0x%x\n", mFlags);
    text.appendFormat("Channel Mask:    0x%x\n", mChannelMask);
    text.appendFormat("Dst Sample Rate: %d\n", static_cast<int>(target.sampleRate));
    text.appendFormat("Dst Format:      0x%x\n", target.format);
    text.appendFormat("Dst Channel Mask:0x%x\n", target.channelMask);
    writeDumpText(fd, text);
    return OK;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

}  // namespace android
