#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace android {

/**
 * Holds the bytes of a frame that two payload runs of a burst cut in two, until its other bytes come.
 * Invariant: byteCount() < the frame size. Threads: one at a time.
 */
class FrameCarry {
public:
    static constexpr size_t kMaxFrameSize = 120;  // bytes: 30 channels of 32 bits

    explicit FrameCarry(size_t frameSize) : mFrameSize(frameSize) {}

    size_t byteCount() const { return mByteCount; }
    void clear() { mByteCount = 0; }

    /** Takes what the carried frame still needs from the front of a run; the bytes taken. When
     *  isWhole() afterwards, frame() is complete and the owner clears. */
    size_t complete(const uint8_t* data, size_t byteCount) {
        const size_t missing = mByteCount > 0 ? mFrameSize - mByteCount : 0;
        return append(data, missing < byteCount ? missing : byteCount);
    }
    bool isWhole() const { return mFrameSize > 0 && mByteCount == mFrameSize; }
    const uint8_t* frame() const { return mFrame; }

    /** Keeps the end of a run, less than a frame. */
    size_t append(const uint8_t* data, size_t byteCount) {
        memcpy(mFrame + mByteCount, data, byteCount);
        mByteCount += byteCount;
        return byteCount;
    }

private:
    const size_t mFrameSize;
    size_t mByteCount = 0;
    uint8_t mFrame[kMaxFrameSize];
};

}  // namespace android
