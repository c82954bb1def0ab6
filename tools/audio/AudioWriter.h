#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/process/OutputFile.h"

namespace android {

/**
 * Writes the mix, 16-bit or Q4.27 stereo, to an audio file of 16 or 32 bits or real numbers, or as
 * WAV to standard output.
 * Threads: one at a time.
 */
class AudioWriter {
public:
    /** Throws ToolError (usage) for a file name extension or a format that can't be written. */
    static void check(const std::string& path, uint32_t rateHz, uint32_t bits,
                      bool isFloat = false);

    /** Of the samples in such a file, which may be fewer than `bits`. */
    static uint32_t fileBits(const std::string& path, uint32_t bits);

    /** `isFloat`: 32-bit frames become real numbers, also those above full scale. */
    AudioWriter(const std::string& path, uint32_t rateHz, uint32_t bits, bool isFloat = false);
    ~AudioWriter();  // abandons what was not finished
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    /** Frames as the mix delivers them. Throws ToolError when the file can't take them. */
    void write(const void* frames, size_t frameCount);
    /** Completes the header and reaches the disk; throws ToolError when that fails. */
    void finish();
    /** Ends a run that failed: what was written stays, a file without audio is deleted. */
    void abandon();

private:
    struct CloseFile {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    size_t frameBytes() const { return mBits == 16 ? 4 : 8; }
    void encode();
    void makePlain();
    [[noreturn]] void fail(int errorNumber) const;

    const std::string mPath;
    const uint32_t mBits;
    const bool mIsFloat;
    const SF_INFO mInfo;
    OutputFile mOutput;  // outlives the encoder
    std::unique_ptr<SNDFILE, CloseFile> mEncoder;
    bool mHasAudio = false;
    std::vector<uint8_t> mGathered;   // frames as they came, for the encoder
    std::vector<int32_t> mFullScale;  // the same, 32 bits to full scale
    std::vector<float> mReal;         // or 1.0
};

}  // namespace android
