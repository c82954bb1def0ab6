#include "buffer/FrameBuffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "android/log.h"
#include "audio_utils/roundup.h"
#include "buffer/FrameSize.h"

namespace android {

namespace {

constexpr const char* kTag = "frame_buffer";
constexpr size_t kMaxResult = std::numeric_limits<int32_t>::max();

// Of a cache line: blocks of a round size are copied without straddling two.
constexpr size_t kAlignment = 64;

/** Zeroed by the system, page by page: even a huge ring costs what it holds. calloc() knows no
 *  alignment, so there is room to begin later. */
uint8_t* allocate(size_t frameCount, size_t frameSize) {
    constexpr size_t kMaxByteCount = std::numeric_limits<ptrdiff_t>::max() - kAlignment;
    uint8_t* storage = nullptr;
    if (frameCount > 0 && frameSize > 0 && frameCount <= kMaxByteCount / frameSize) {
        storage = static_cast<uint8_t*>(calloc(frameCount * frameSize + kAlignment, 1));
    }
    if (storage == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to allocate enough memory");
    }
    return storage;
}

uint8_t* aligned(uint8_t* storage) {
    return storage + (kAlignment - reinterpret_cast<uintptr_t>(storage) % kAlignment) % kAlignment;
}

/** What a release of more frames than there are is answered with. */
auto warning(const char* caller, size_t frameCount) {
    return [caller, frameCount](size_t available) {
        __android_log_print(
            ANDROID_LOG_WARN, kTag,
            "%s, Try to release %zu bytes, but actual %zu bytes available to release", caller,
            frameCount, available);
    };
}

}  // namespace

FrameBuffer::FrameBuffer(audio_format_t format, uint32_t channelMask, size_t frameCount,
                         bool powerOfTwo, size_t readPosition, size_t writePosition)
    : mFormat(format),
      mChannelMask(channelMask),
      mPositions(
          powerOfTwo ? roundup(static_cast<uint32_t>(frameCount)) : frameCount, powerOfTwo,
          static_cast<uint32_t>(readPosition),
          // The distance of the two is what counts, and that is taken as a signed 32-bit number.
          static_cast<uint32_t>(readPosition) +
              static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(
                  static_cast<uint32_t>(writePosition) - static_cast<uint32_t>(readPosition))))),
      mStorage(allocate(mPositions.frameCount(), frameSizeOf(format, channelMask))),
      mBuffer(mStorage != nullptr ? aligned(mStorage.get()) : nullptr),
      mFrameSize(frameSizeOf(format, channelMask)) {}

FrameBuffer::~FrameBuffer() = default;

size_t FrameBuffer::convertStatisticsToIndexInBuffer(size_t position) const {
    return mPositions.indexOf(position);
}

bool FrameBuffer::match(audio_format_t format, uint32_t channelMask) const {
    return format == mFormat && channelMask == mChannelMask;
}

status_t FrameBuffer::statistics(size_t& readCount, size_t& writtenCount) const {
    if (!validate()) {
        return -ENODEV;
    }
    const Positions::Snapshot at = mPositions.snapshot();
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
    return mPositions.availableToWrite();
}

size_t FrameBuffer::availableToRead() const {
    return mPositions.availableToRead();
}

status_t FrameBuffer::getPartialPosition(size_t frameCount, bool isRead, void*& first,
                                         size_t& firstFrameCount, void*& second,
                                         size_t& secondFrameCount) const {
    if (!validate()) {
        return -ENODEV;
    }
    const Positions::Snapshot at = mPositions.snapshot();
    if (isRead ? mPositions.isEmpty(at) : mPositions.isFull(at)) {
        return isRead ? -ENODATA : -EAGAIN;
    }
    const Positions::Spans spans =
        isRead ? mPositions.readSpans(at, frameCount) : mPositions.writeSpans(at, frameCount);
    first = frameAt(spans.index);
    firstFrameCount = spans.first;
    second = mBuffer;
    secondFrameCount = spans.second;
    return OK;
}

void FrameBuffer::updateWritePosition(size_t frameCount) {
    mPositions.advanceWrite(frameCount);
}

void FrameBuffer::updateReadPosition(size_t frameCount) {
    mPositions.advanceRead(frameCount);
}

int32_t FrameBuffer::write(const void* data, size_t frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr || frameCount == 0) {
        return -EINVAL;
    }
    const auto* source = static_cast<const uint8_t*>(data);
    const auto copyIn = [this, source](const Positions::Spans& spans) {
        memcpy(frameAt(spans.index), source, spans.first * mFrameSize);
        if (spans.second > 0) {
            memcpy(mBuffer, source + spans.first * mFrameSize, spans.second * mFrameSize);
        }
    };
    return static_cast<int32_t>(mPositions.write(std::min(frameCount, kMaxResult), copyIn));
}

int32_t FrameBuffer::read(void* data, size_t frameCount) {
    if (!validate()) {
        return -ENODEV;
    }
    if (data == nullptr || frameCount == 0) {
        return -EINVAL;
    }
    auto* target = static_cast<uint8_t*>(data);
    const auto copyOut = [this, target](const Positions::Spans& spans) {
        memcpy(target, frameAt(spans.index), spans.first * mFrameSize);
        if (spans.second > 0) {
            memcpy(target + spans.first * mFrameSize, mBuffer, spans.second * mFrameSize);
        }
    };
    return static_cast<int32_t>(mPositions.read(std::min(frameCount, kMaxResult), copyOut));
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
    if (mPositions.isFull(mPositions.snapshot())) {
        return -EAGAIN;
    }
    const Positions::Spans spans = mPositions.producerSpans(frameCount);
    frameCount = spans.first;
    *data = frameAt(spans.index);
    return OK;
}

status_t FrameBuffer::releaseWriteBuffer(void* /*data*/, size_t frameCount) {
    if (!allows(FRAME_BUFFER_RELEASE_WRITE)) {
        return -ENOSYS;
    }
    mPositions.commitWrite(frameCount, warning(__func__, frameCount));
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
    const Positions::Spans spans = mPositions.consumerSpans(frameCount);
    frameCount = spans.first;
    // Without frames wanted it still says where those held begin.
    if (frameCount > 0 || availableToRead() > 0) {
        *data = frameAt(spans.index);
    }
    return OK;
}

status_t FrameBuffer::releaseReadBuffer(void* /*data*/, size_t frameCount) {
    if (!allows(FRAME_BUFFER_RELEASE_READ)) {
        return -ENOSYS;
    }
    mPositions.commitRead(frameCount, warning(__func__, frameCount));
    return OK;
}

status_t FrameBuffer::getNextBuffer(Buffer* buffer, int64_t /*presentationTime*/) {
    if (!validate()) {
        return -ENODEV;
    }
    if (buffer == nullptr) {
        return -EINVAL;
    }
    if (mPositions.isEmpty(mPositions.snapshot())) {
        *buffer = {};
        return -ENODATA;
    }
    const Positions::Spans spans = mPositions.consumerSpans(buffer->frameCount);
    buffer->frameCount = spans.first;
    buffer->raw = frameAt(spans.index);
    return OK;
}

void FrameBuffer::releaseBuffer(Buffer* buffer) {
    if (buffer == nullptr) {
        return;
    }
    mPositions.commitRead(buffer->frameCount, warning(__func__, buffer->frameCount));
    *buffer = {};
}

status_t FrameBuffer::flush() {
    if (!validate()) {
        return -ENODEV;
    }
    // Only what is discarded is zeroed. The free part is the producer's, who may be filling it for
    // a commit to come, and it is never read before it was written.
    mPositions.flush([this](const Positions::Spans& spans) {
        memset(frameAt(spans.index), 0, spans.first * mFrameSize);
        memset(mBuffer, 0, spans.second * mFrameSize);
    });
    return OK;
}

void FrameBuffer::reset() {
    mPositions.reset();
    if (validate()) {
        memset(mBuffer, 0, mPositions.frameCount() * mFrameSize);
    }
}

}  // namespace android
