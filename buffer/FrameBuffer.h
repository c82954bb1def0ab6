#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "buffer/FrameBufferMode.h"
#include "buffer/RingPositions.h"
#include "media/AudioBufferProvider.h"
#include "system/audio.h"
#include "utils/Errors.h"
#include "utils/RefBase.h"

namespace android {

/**
 * A ring of audio frames of one format and channel mask. Every count, size and position is in
 * frames. Frames go in and out by copy (write, read), in place (obtain a contiguous region, then
 * release what was used of it), or through the buffer-provider protocol.
 *
 * Invariant: held = written - read <= capacity; positions only grow, reset() aside.
 * Threads:   one producer and one consumer at a time, without a lock. The producer side is write(),
 *            obtainWriteBuffer(), releaseWriteBuffer() and updateWritePosition(); the consumer side
 *            is read(), obtainReadBuffer(), releaseReadBuffer(), getNextBuffer(), releaseBuffer(),
 *            updateReadPosition() and flush(). A side may pass from thread to thread under a lock
 *            of its owner. reset() needs both sides. The queries and the mode are for any thread.
 * Cost:      constant, apart from at most two copies; nothing allocates after construction.
 *
 * Statuses: 0; -ENODEV no storage; -EINVAL null pointer or zero count; -ENOSYS the mode forbids it;
 * -EAGAIN no room to write; -ENODATA nothing to read.
 */
class FrameBuffer : public AudioBufferProvider, public RefBase {
public:
    /**
     * `powerOfTwo` rounds the low 32 bits of `frameCount` up to a power of two. Of the initial
     * positions the low 32 bits count. A capacity of 0, a frame size of 0 and a size that can't be
     * addressed or allocated leave the buffer without storage.
     */
    FrameBuffer(audio_format_t format, uint32_t channelMask, size_t frameCount, bool powerOfTwo,
                size_t readPosition, size_t writePosition);
    ~FrameBuffer() override;

    status_t getNextBuffer(Buffer* buffer, int64_t presentationTime) override;
    void releaseBuffer(Buffer* buffer) override;

    /** Copies up to `frameCount` frames in or out; the frames moved, or a negative status. */
    virtual int32_t write(const void* data, size_t frameCount);
    virtual int32_t read(void* data, size_t frameCount);
    /** Discards every frame held and zeroes it. */
    virtual status_t flush();
    /** Both positions and the storage become 0; the mode stays. */
    virtual void reset();

    bool validate() const { return mBuffer != nullptr; }
    bool match(audio_format_t format, uint32_t channelMask) const;
    /** The positions as signed 32-bit counts, widened. */
    status_t statistics(size_t& readCount, size_t& writtenCount) const;
    void allow(FrameBufferMode mode);
    void disallow(FrameBufferMode mode);
    size_t availableToWrite() const;
    size_t availableToRead() const;

    /** Where up to `frameCount` frames would be read or written: two spans, in this order. */
    status_t getPartialPosition(size_t frameCount, bool isRead, void*& first,
                                size_t& firstFrameCount, void*& second,
                                size_t& secondFrameCount) const;
    void updateWritePosition(size_t frameCount);
    void updateReadPosition(size_t frameCount);
    size_t convertStatisticsToIndexInBuffer(size_t position) const;

    /** The contiguous free region at the write position; `frameCount` goes in as the frames wanted
     *  and comes out as those in the region. Nothing is reserved until the release. */
    status_t obtainWriteBuffer(void** data, size_t& frameCount);
    status_t releaseWriteBuffer(void* data, size_t frameCount);
    /** The same for the frames held. An empty buffer is 0 frames with status 0, and `data` stays as
     *  it was. */
    status_t obtainReadBuffer(void** data, size_t& frameCount);
    status_t releaseReadBuffer(void* data, size_t frameCount);

private:
    using Positions = RingPositions<>;
    struct FreeStorage {
        void operator()(uint8_t* storage) const { free(storage); }
    };

    bool allows(FrameBufferMode mode) const;
    uint8_t* frameAt(size_t index) const { return mBuffer + index * mFrameSize; }

    const audio_format_t mFormat;
    const uint32_t mChannelMask;
    Positions mPositions;
    const std::unique_ptr<uint8_t, FreeStorage> mStorage;
    uint8_t* const mBuffer;  // the first frame, in mStorage

public:
    const size_t mFrameSize;  // bytes per frame

private:
    std::atomic<uint32_t> mMode{FRAME_BUFFER_ALL};  // its owner's flags; orders nothing
};

}  // namespace android
