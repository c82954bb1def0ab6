#include "stream/AudioStream.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "android/log.h"
#include "stream/ConversionChain.h"
#include "stream/DumpText.h"
#include "utils/String8.h"
#include "utils/Timers.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_stream";
constexpr nsecs_t kWriteLimitNs = 999'999'999;
constexpr timespec kWriteWait = {.tv_sec = 0, .tv_nsec = 10'000'000};
constexpr timespec kCloseWait = {.tv_sec = 1, .tv_nsec = 0};

/** Whole frames in `byteCount`, as many as a 32-bit byte count can report. */
size_t wholeFrames(size_t byteCount, size_t frameSize) {
    if (frameSize == 0) {
        return 0;
    }
    return std::min<size_t>(byteCount, std::numeric_limits<int32_t>::max()) / frameSize;
}

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value, const timespec* timeout) {
    static_assert(sizeof(word) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);
    return syscall(SYS_futex, &word, operation, value, timeout, nullptr, 0);
}

/** Sleeps while the word has this value: until a wake-up, the time-out or a signal. 0, or an errno
 *  value. */
int sleepWhile(std::atomic<uint32_t>& word, uint32_t value, const timespec& timeout) {
    return futex(word, FUTEX_WAIT, value, &timeout) == 0 ? 0 : errno;
}

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
      mFrameSize(audio_channel_count_from_out_mask(channelMask) * audio_bytes_per_sample(format)),
      mInputBuffer(new FrameBuffer(format, channelMask, static_cast<uint32_t>(bufferFrameCount),
                                   false, 0, 0)),
      mAudioDump(
          new AudioDump("/data/misc/audioserver/", "audio_stream", "vendor.audio.hwsync.stream")) {}

AudioStream::~AudioStream() {
    const Mutex::Autolock lock(mLock);
    mProcessers.clear();
    mVolumeMixer.clear();
}

int AudioStream::setVolume(float left, float right) {
    const Mutex::Autolock lock(mLock);
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
    return mActive.load(std::memory_order_relaxed);
}

int AudioStream::open() {
    mActive.store(true, std::memory_order_relaxed);
    return OK;
}

int AudioStream::pause() {
    mActive.store(false, std::memory_order_relaxed);
    return OK;
}

int AudioStream::resume() {
    return OK;
}

template <typename IsNeeded>
int AudioStream::waitUntilDataConsumed_l(const timespec* timeout, IsNeeded isNeeded) {
    const int error =
        mConsumed.wait(isNeeded, [timeout](std::atomic<uint32_t>& word, uint32_t expected) {
            return sleepWhile(word, expected, *timeout);
        });
    if (error == 0 || error == EINTR || error == EAGAIN || error == ETIMEDOUT) {
        return OK;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to wait, errno: %d, %s", __func__, error,
                        strerror(error));
    return error;
}

int AudioStream::close() {
    if (mInputBuffer->availableToRead() > 0) {
        waitUntilDataConsumed_l(&kCloseWait,
                                [this] { return mInputBuffer->availableToRead() > 0; });
    }
    AudioStream::flush();
    mActive.store(false, std::memory_order_relaxed);
    return OK;
}

int AudioStream::flush() {
    // A flush moves the consumer's side of the ring; under the lock the mixer is not reading it.
    const Mutex::Autolock lock(mLock);
    mInputBuffer->flush();
    return OK;
}

int AudioStream::notifyDataConsumed_l() {
    return mConsumed.notify([](std::atomic<uint32_t>& word) {
        return futex(word, FUTEX_WAKE, 1, nullptr) < 0 ? errno : 0;
    });
}

int AudioStream::write(const void* data, size_t byteCount) {
    if (data == nullptr || byteCount == 0) {
        return 0;
    }
    if (!isOpened()) {
        open();
    }
    const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
    const size_t frameCount = wholeFrames(byteCount, mFrameSize);
    const auto* source = static_cast<const uint8_t*>(data);
    size_t done = 0;
    while (done < frameCount) {
        void* region = nullptr;
        size_t regionFrameCount = frameCount - done;
        if (mInputBuffer->obtainWriteBuffer(&region, regionFrameCount) == OK) {
            memcpy(region, source + done * mFrameSize, regionFrameCount * mFrameSize);
            mInputBuffer->releaseWriteBuffer(region, regionFrameCount);
            done += regionFrameCount;
        } else if (systemTime(SYSTEM_TIME_MONOTONIC) - start > kWriteLimitNs) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "%s, It costs too long (%d ms) to write",
                                __func__, 1000);
            break;
        } else {
            waitUntilDataConsumed_l(&kWriteWait, [this] {
                return !mInputBuffer->validate() || mInputBuffer->availableToWrite() == 0;
            });
        }
    }
    const size_t written = done * mFrameSize;
    if (written < byteCount) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, some bytes (%lu) are missed", __func__,
                            static_cast<unsigned long>(byteCount - written));
    }
    mAudioDump->dump(data, written);
    return static_cast<int>(written);
}

int AudioStream::read(void* data, size_t byteCount) {
    if (!isOpened()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, stream is not opened yet", __func__);
        return -ENODEV;
    }
    const Mutex::Autolock lock(mLock);
    const int32_t frameCount = mInputBuffer->read(data, wholeFrames(byteCount, mFrameSize));
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
        return -EINVAL;
    }
    const Mutex::Autolock lock(mLock);
    std::swap(mProcessers, chain.processers);
    mVolumeMixer.swap(chain.volumeMixer);
    mDstSampleRate = sampleRate;
    mDstFormat = format;
    mDstChannelMask = channelMask;
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
    const Mutex::Autolock lock(mLock);
    // A chain that a failed reconfiguration left behind would write frames of another size.
    if (mProcessers.isEmpty() || !output->match(mDstFormat, mDstChannelMask)) {
        return 0;
    }
    mVolumeMixer->setOutputBuffer(output);
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
        const Mutex::Autolock lock(mLock);
        target = {mDstSampleRate, mDstFormat, mDstChannelMask};
    }
    // Without the lock: the mixer may not wait for an allocation.
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
