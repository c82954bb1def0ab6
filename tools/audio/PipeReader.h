#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/PipeFormat.h"
#include "tools/process/StandardInput.h"

namespace android {

/**
 * Samples from standard input, for as long as the program in front of the pipe sends some. A read
 * waits for that program, but not beyond cancel(), Ctrl-C or SIGTERM.
 */
class PipeReader : public AudioInput {
public:
    struct Content {
        PipeFormat format;
        int64_t headerBytes = 0;  // in front of the samples
        int64_t audioBytes = -1;  // negative: until the pipe ends
        double fromSec = 0.0;     // passed over
    };

    PipeReader(std::unique_ptr<StandardInput> input, const Content& content, bool allowTruncated);

    uint32_t rateHz() const override { return mContent.format.rateHz; }
    uint32_t channelCount() const override { return mContent.format.channelCount; }
    int64_t frameCount() const override { return -1; }
    bool fits16Bits() const override { return mContent.format.sample == PipeFormat::Sample::S16; }
    std::string describe() const override;

    size_t read16(int16_t* out, size_t frameCount) override;
    size_t readQ27(int32_t* out, size_t frameCount) override;
    void rewind() override;
    void cancel() override { mInput->cancel(); }

private:
    /** Fills mBytes with whole frames, as many as were read. */
    size_t readFrames(size_t frameCount);
    /** The same, and nothing is passed over. */
    size_t receiveFrames(size_t frameCount);
    void passOver();
    void checkEnd(size_t leftoverBytes) const;

    const std::unique_ptr<StandardInput> mInput;
    const Content mContent;
    const bool mAllowTruncated;
    bool mHasBegun = false;
    int64_t mBytesLeft;  // of the audio
    int64_t mFramesRead = 0;
    std::vector<uint8_t> mBytes;
};

}  // namespace android
