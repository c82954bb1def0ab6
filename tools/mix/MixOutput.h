#pragma once

#include <cstddef>
#include <memory>

#include "tools/audio/AudioWriter.h"
#include "tools/audio/LevelMeter.h"
#include "tools/device/PlayDevice.h"

namespace android {

/**
 * Where the mix goes: into a file, to a sound device, or both. It is measured on the way.
 * Threads: write() on the mixer's; finish() and abandon() by the owner, when no more is mixed.
 */
class MixOutput {
public:
    /** Either may be null. */
    MixOutput(std::unique_ptr<AudioWriter> file, std::unique_ptr<PlayDevice> device, uint32_t bits)
        : mFile(std::move(file)), mDevice(std::move(device)), mMeter(bits) {}

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
    const std::unique_ptr<AudioWriter> mFile;
    const std::unique_ptr<PlayDevice> mDevice;
    LevelMeter mMeter;
};

}  // namespace android
