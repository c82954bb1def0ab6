#include "buffer/FrameBuffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "android/log.h"
#include "audio_utils/roundup.h"

namespace android {

namespace {

constexpr const char* kTag = "frame_buffer";
constexpr size_t kMaxResult = std::numeric_limits<int32_t>::max();

size_t frameSizeOf(audio_format_t format, uint32_t channelMask) {
    return audio_channel_count_from_out_mask(channelMask) * audio_bytes_per_sample(format);
}

/** Zeroed by the system, page by page: even a huge ring costs what it holds. */
uint8_t* allocate(size_t frameCount, size_t frameSize) {
    constexpr size_t kMaxByteCount = std::numeric_limits<ptrdiff_t>::max();
    uint8_t* storage = nullptr;
    if (frameCount > 0 && frameSize > 0 && frameCount <= kMaxByteCount / frameSize) {
        storage = static_cast<uint8_t*>(calloc(frameCount, frameSize));
    }
    if (storage == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to allocate enough memory");
    }
    return storage;
}

}  // namespace

FrameBuffer::FrameBuffer(audio_format_t format, uint32_t channelMask, size_t frameCount,
                         bool powerOfTwo, size_t readPosition, size_t writePosition)
    : mFormat(format),
      mChannelMask(channelMask),
      mFrameCount(powerOfTwo ? roundup(static_cast<uint32_t>(frameCount)) : frameCount),
      mPowerOfTwo(powerOfTwo),
      mBuffer(allocate(mFrameCount, frameSizeOf(format, channelMask))),
      mFrameSize(frameSizeOf(format, channelMask)),
      mReadPosition(static_cast<uint32_t>(readPosition)),
      // The distance of the two is what counts, and that is taken as a signed 32-bit number.
      mWritePosition(
          static_cast<uint32_t>(readPosition) +
          static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(
              static_cast<uint32_t>(writePosition) - static_cast<uint32_t>(readPosition))))) {}

FrameBuffer::~FrameBuffer() = default;

FrameBuffer::Snapshot FrameBuffer::snapshot() const {
    // The read position first: whichever side asks, the frames held are never overstated to the
    // consumer nor the room to the producer.
    const uint64_t read = mReadPosition.load(std::memory_order_acquire);
    return {read, mWritePosition.load(std::memory_order_acquire)};
}

bool FrameBuffer::isEmpty(const Snapshot& at) const {
    return static_cast<int64_t>(at.write - at.read) <= 0;
}

bool FrameBuffer::isFull(const Snapshot& at) const {
    return !isEmpty(at) && at.write - at.read >= mFrameCount;
}

FrameBuffer::Spans FrameBuffer::writeSpans(const Snapshot& at, size_t frameCount) const {
    const size_t readIndex = convertStatisticsToIndexInBuffer(at.read);
    const size_t writeIndex = convertStatisticsToIndexInBuffer(at.write);
    if (isFull(at)) {
        return {writeIndex, 0, 0};
    }
    if (readIndex > writeIndex) {
        return {writeIndex, std::min(frameCount, readIndex - writeIndex), 0};
    }
    const size_t first = std::min(frameCount, mFrameCount - writeIndex);
    return {writeIndex, first, std::min(readIndex, frameCount - first)};
}

FrameBuffer::Spans FrameBuffer::readSpans(const Snapshot& at, size_t frameCount) const {
    const size_t readIndex = convertStatisticsToIndexInBuffer(at.read);
    const size_t writeIndex = convertStatisticsToIndexInBuffer(at.write);
    if (isEmpty(at)) {
        return {readIndex, 0, 0};
    }
    if (writeIndex > readIndex) {
        return {readIndex, std::min(frameCount, writeIndex - readIndex), 0};
    }
    const size_t first = std::min(frameCount, mFrameCount - readIndex);
    return {readIndex, first, std::min(writeIndex, frameCount - first)};
}

size_t FrameBuffer::convertStatisticsToIndexInBuffer(size_t position) const {
    if (mFrameCount == 0) {
        return 0;
    }
    return mPowerOfTwo ? position & (mFrameCount - 1) : position % mFrameCount;
}

bool FrameBuffer::match(audio_format_t format, uint32_t channelMask) const {
    return format == mFormat && channelMask == mChannelMask;
}

status_t FrameBuffer::statistics(size_t& readCount, size_t& writtenCount) const {
    if (!validate()) {
        return -ENODEV;
    }
    const Snapshot at = snapshot();
    readCount = static_cast<size_t>(static_cast<int64_t>(static_cast<int32_t>(at.read)));
    writtenCount = static_cast<size_t>(static_cast<int64_t>(static_cast<int32_t>(at.write)));
    return OK;
}

void FrameBuffer::allow(FrameBufferMode mode) {
    mMode.fetch_or(mode & FRAME_BUFFER_ALL, std::memory_order_relaxed);
}

void FrameBuffer::disallow(FrameBufferMode mode) {
    mMode.fetch_and(~static_cast<uint32_t>(mode & FRAME_BUFFER_ALL), std::memory_order_relaxed);
}

bool FrameBuffer::allows(FrameBufferMode mode) const {
    return (mMode.load(std::memory_order_relaxed) & mode) != 0;
}

size_t FrameBuffer::availableToWrite() const {
    return writeSpans(snapshot(), mFrameCount).total();
}

size_t FrameBuffer::availableToRead() const {
    return readSpans(snapshot(), mFrameCount).total();
}

status_t FrameBuffer::getPartialPosition(size_t frameCount, bool isRead, void*& first,
                                         size_t& firstFrameCount, void*& second,
                                         size_t& secondFrameCount) const {
    if (!validate()) {
        return -ENODEV;
    }
    const Snapshot at = snapshot();
    if (isRead ? isEmpty(at) : isFull(at)) {
        return isRead ? -ENODATA : -EAGAIN;
    }
    const Spans spans = isRead ? readSpans(at, frameCount) : writeSpans(at, frameCount);
    first = frameAt(spans.index);
    firstFrameCount = spans.first;
    second = mBuffer.get();
    secondFrameCount = spans.second;
    return OK;
}

void FrameBuffer::updateWritePosition(size_t frameCount) {
    const uint64_t position = mWritePosition.load(std::memory_order_relaxed);
    mWritePosition.store(position + frameCount, std::memory_order_release);
}

void FrameBuffer::updateReadPosition(size_t frameCount) {
    const uint64_t position = mReadPosition.load(std::memory_order_relaxed);
    mReadPosition.store(position + frameCount, std::memory_order_release);
}

int32_t FrameBuffer::write(const void* data, size_t frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr || frameCount == 0) {
        return -EINVAL;
    }
    const Spans spans = writeSpans(snapshot(), std::min(frameCount, kMaxResult));
    const auto* source = static_cast<const uint8_t*>(data);
    memcpy(frameAt(spans.index), source, spans.first * mFrameSize);
    memcpy(mBuffer.get(), source + spans.first * mFrameSize, spans.second * mFrameSize);
    updateWritePosition(spans.total());
    return static_cast<int32_t>(spans.total());
}

int32_t FrameBuffer::read(void* data, size_t frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr || frameCount == 0) {
        return -EINVAL;
    }
    const Spans spans = readSpans(snapshot(), std::min(frameCount, kMaxResult));
    auto* target = static_cast<uint8_t*>(data);
    memcpy(target, frameAt(spans.index), spans.first * mFrameSize);
    memcpy(target + spans.first * mFrameSize, mBuffer.get(), spans.second * mFrameSize);
    updateReadPosition(spans.total());
    return static_cast<int32_t>(spans.total());
}

status_t FrameBuffer::obtainWriteBuffer(void** data, size_t& frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr) {
        return -EINVAL;
    }
    if (!allows(FRAME_BUFFER_OBTAIN_WRITE)) {
        return -ENOSYS;
    }
    const Snapshot at = snapshot();
    if (isFull(at)) {
        return -EAGAIN;
    }
    const Spans spans = writeSpans(at, frameCount);
    frameCount = spans.first;
    *data = frameAt(spans.index);
    return OK;
}

status_t FrameBuffer::releaseWriteBuffer(void* /*data*/, size_t frameCount) {
    if (!allows(FRAME_BUFFER_RELEASE_WRITE)) {
        return -ENOSYS;
    }
    const size_t free = availableToWrite();
    if (frameCount > free) {
        __android_log_print(
            ANDROID_LOG_WARN, kTag,
            "%s, Try to release %zu bytes, but actual %zu bytes available to release", __func__,
            frameCount, free);
    }
    updateWritePosition(std::min(frameCount, free));
    return OK;
}

status_t FrameBuffer::obtainReadBuffer(void** data, size_t& frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr) {
        return -EINVAL;
    }
    if (!allows(FRAME_BUFFER_OBTAIN_READ)) {
        return -ENOSYS;
    }
    const Spans spans = readSpans(snapshot(), frameCount);
    frameCount = spans.first;
    if (frameCount > 0) {
        *data = frameAt(spans.index);
    }
    return OK;
}

status_t FrameBuffer::releaseReadBuffer(void* /*data*/, size_t frameCount) {
    if (!allows(FRAME_BUFFER_RELEASE_READ)) {
        return -ENOSYS;
    }
    consume(__func__, frameCount);
    return OK;
}

status_t FrameBuffer::getNextBuffer(Buffer* buffer, int64_t /*presentationTime*/) {
    if (!validate()) {
        return -ENODEV;
    }
    if (buffer == nullptr) {
        return -EINVAL;
    }
    const Snapshot at = snapshot();
    if (isEmpty(at)) {
        *buffer = {};
        return -ENODATA;
    }
    const Spans spans = readSpans(at, buffer->frameCount);
    buffer->frameCount = spans.first;
    buffer->raw = frameAt(spans.index);
    return OK;
}

void FrameBuffer::releaseBuffer(Buffer* buffer) {
    if (buffer == nullptr) {
        return;
    }
    consume(__func__, buffer->frameCount);
    *buffer = {};
}

void FrameBuffer::consume(const char* caller, size_t frameCount) {
    const size_t held = availableToRead();
    if (frameCount > held) {
        __android_log_print(
            ANDROID_LOG_WARN, kTag,
            "%s, Try to release %zu bytes, but actual %zu bytes available to release", caller,
            frameCount, held);
    }
    updateReadPosition(std::min(frameCount, held));
}

status_t FrameBuffer::flush() {
    if (!validate()) {
        return -ENODEV;
    }
    // Only what is discarded is zeroed. The free part is the producer's, who may be filling it for
    // a commit to come, and it is never read before it was written.
    const Snapshot at = snapshot();
    const Spans spans = readSpans(at, mFrameCount);
    memset(frameAt(spans.index), 0, spans.first * mFrameSize);
    memset(mBuffer.get(), 0, spans.second * mFrameSize);
    mReadPosition.store(at.write, std::memory_order_release);
    return OK;
}

void FrameBuffer::reset() {
    mReadPosition.store(0, std::memory_order_release);
    mWritePosition.store(0, std::memory_order_release);
    if (validate()) {
        memset(mBuffer.get(), 0, mFrameCount * mFrameSize);
    }
}

}  // namespace android
