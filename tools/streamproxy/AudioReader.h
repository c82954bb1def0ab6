#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace android {

/**
 * Decodes one audio file into 16-bit or Q4.27 samples, in the file's own rate and channels.
 * Invariant: 1 or more channels, a rate from 4000 to 768000 Hz, 1 or more frames.
 * Threads:   one at a time.
 */
class AudioReader {
public:
    /**
     * Throws ToolError naming the file when it can't be heard as it is: missing, a directory,
     * empty, not audio, without frames, of an impossible rate, shorter than its own header says.
     */
    AudioReader(const std::string& path, bool allowTruncated);

    const std::string& path() const { return mPath; }
    uint32_t rateHz() const { return static_cast<uint32_t>(mInfo.samplerate); }
    uint32_t channelCount() const { return static_cast<uint32_t>(mInfo.channels); }
    /** What the header says; a truncated file may hold fewer. */
    int64_t frameCount() const { return mInfo.frames; }
    /** 16 bits hold every sample of the file. */
    bool fits16Bits() const { return mSamples == Samples::BITS_16; }
    /** Such as "44100 Hz, 16-bit PCM, stereo". */
    std::string describe() const;

    /** Interleaved frames, fewer than asked at the end only. Throws where decoding fails. */
    size_t read16(int16_t* out, size_t frameCount);
    /** The same as Q4.27: full scale is 1 << 27, floating-point files keep 24 dB above it. */
    size_t readQ27(int32_t* out, size_t frameCount);
    /** Back to the first frame; throws for a file that can't seek. */
    void rewind();

private:
    enum class Samples { BITS_16, BITS_32, REAL };

    void openFile();
    void checkWhole();
    size_t checkRead(sf_count_t framesRead, size_t frameCount);
    [[noreturn]] void fail(const std::string& what) const;

    struct CloseFile {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    const std::string mPath;
    const bool mAllowTruncated;
    SF_INFO mInfo{};
    std::unique_ptr<SNDFILE, CloseFile> mFile;
    Samples mSamples = Samples::REAL;
    int64_t mPosition = 0;         // frames since the start or the last rewind
    std::vector<double> mScratch;  // of REAL files
};

}  // namespace android
