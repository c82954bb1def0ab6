#pragma once

#include <cstddef>
#include <memory>

#include "tools/audio/AudioWriter.h"
#include "tools/audio/LevelMeter.h"
#include "tools/audio/MixStore.h"
#include "tools/device/PlayDevice.h"

namespace android {

/**
 * Where the mix goes: into a file, to a sound device, or both. It is measured on the way.
 * Threads: write() on the mixer's; finish() and abandon() by the owner, when no more is mixed.
 */
class MixOutput {
public:
    /** Either may be null. `bits` are those that come out. */
    MixOutput(std::unique_ptr<AudioWriter> file, std::unique_ptr<PlayDevice> device, uint32_t bits)
        : mFile(std::move(file)), mDevice(std::move(device)), mBits(bits), mMeter(bits) {}

    /** From now on the file gets nothing before the end: then the whole 32-bit mix, brought to this
     *  peak. Needs a file and no device. */
    void normalize(std::unique_ptr<MixStore> store, double peakDbfs);
    /** The gain that finish() found, in dB; 0 before, and for silence. */
    double normalizingDb() const { return mNormalizingDb; }

    /**
     * Frames as the mix delivers them; a device takes them in its own time. False: a signal came
     * meanwhile, and no more are wanted. Throws ToolError.
     */
    bool write(const void* frames, size_t frameCount);
    /** Completes the file and plays to the end; throws ToolError when the file can't be. */
    void finish();
    /** Ends a run that failed: what was written stays, a file without audio is deleted. */
    void abandon();

    LevelMeter& meter() { return mMeter; }
    const LevelMeter& meter() const { return mMeter; }
    int64_t underrunCount() const { return mDevice ? mDevice->underrunCount() : 0; }

private:
    void writeNormalized();

    const std::unique_ptr<AudioWriter> mFile;
    const std::unique_ptr<PlayDevice> mDevice;
    const uint32_t mBits;
    LevelMeter mMeter;
    std::unique_ptr<MixStore> mStore;  // while the peak is not known
    double mPeakDbfs = 0.0;
    double mNormalizingDb = 0.0;
};

}  // namespace android
