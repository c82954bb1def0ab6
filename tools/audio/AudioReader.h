#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/process/StandardInput.h"

namespace android {

/**
 * Decodes one audio file into 16-bit or Q4.27 samples, in the file's own rate and channels.
 * Invariant: 1 or more frames.
 */
class AudioReader : public AudioInput {
public:
    struct Options {
        bool allowTruncated = false;
        double fromSec = 0.0;           // where it begins, again when it is rewound
        StandardInput::Stream content;  // a file that is open, whose name is only told; null: none
    };

    /**
     * Throws ToolError naming the file when it can't be heard as it is: missing, a directory,
     * empty, not audio, without frames, of an impossible rate, shorter than its own header says
     * or than where it is to begin.
     */
    AudioReader(const std::string& path, Options options);

    const std::string& path() const { return mPath; }
    uint32_t rateHz() const override { return static_cast<uint32_t>(mInfo.samplerate); }
    uint32_t channelCount() const override { return static_cast<uint32_t>(mInfo.channels); }
    /** What the header says. */
    int64_t frameCount() const override { return mInfo.frames - mFromFrame; }
    bool fits16Bits() const override { return mSamples == Samples::BITS_16; }
    std::vector<int> channelMap() const override;
    std::string describe() const override;

    size_t read16(int16_t* out, size_t frameCount) override;
    /** Floating-point files keep 24 dB above full scale. */
    size_t readQ27(int32_t* out, size_t frameCount) override;
    void rewind() override;

private:
    enum class Samples { BITS_16, BITS_32, REAL };

    void checkPath() const;
    void openFile();
    void checkWhole();
    sf_count_t countFrames();
    void begin();
    size_t checkRead(sf_count_t framesRead, size_t frameCount);
    std::vector<uint8_t> beginning() const;
    [[noreturn]] void failToOpen(const std::string& reason) const;
    [[noreturn]] void fail(const std::string& what) const;

    struct CloseFile {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    const std::string mPath;
    const Options mOptions;
    SF_INFO mInfo{};
    std::unique_ptr<SNDFILE, CloseFile> mFile;
    Samples mSamples = Samples::REAL;
    int64_t mFromFrame = 0;
    int64_t mPosition = 0;         // of the next frame in the file
    std::vector<double> mScratch;  // of REAL files
};

}  // namespace android
