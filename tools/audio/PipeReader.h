#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/PipeFormat.h"

namespace android {

/**
 * Raw PCM from standard input, for as long as the program in front of the pipe sends some. A read
 * waits for that program, but not beyond cancel(), Ctrl-C or SIGTERM.
 */
class PipeReader : public AudioInput {
public:
    /** Throws ToolError when there is no pipe to read, but a terminal or nothing at all. */
    PipeReader(const PipeFormat& format, bool allowTruncated);

    uint32_t rateHz() const override { return mFormat.rateHz; }
    uint32_t channelCount() const override { return mFormat.channelCount; }
    int64_t frameCount() const override { return -1; }
    bool fits16Bits() const override { return mFormat.bits == 16; }
    std::string describe() const override;

    size_t read16(int16_t* out, size_t frameCount) override;
    size_t readQ27(int32_t* out, size_t frameCount) override;
    void rewind() override;
    void cancel() override { mIsCancelled.store(true, std::memory_order_relaxed); }

private:
    /** Fills mBytes with whole frames, as many as were read. */
    size_t readFrames(size_t frameCount);
    bool waitForBytes() const;
    void checkBegin(size_t byteCount) const;
    void checkEnd(size_t leftoverBytes) const;

    const PipeFormat mFormat;
    const bool mAllowTruncated;
    std::atomic<bool> mIsCancelled{false};
    bool mIsOver = false;
    int64_t mFramesRead = 0;
    std::vector<uint8_t> mBytes;
};

}  // namespace android
