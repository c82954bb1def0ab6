#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace android {

/**
 * A sound device that hears the mix, stereo, at its own pace.
 * Threads: write() on the mixer's; underrunCount() on any; the rest by the owner, with no write
 *          under way.
 */
class PlayDevice {
public:
    struct Config {
        std::string name;
        uint32_t rateHz;
        uint32_t bits;  // 16, or 32 for Q4.27
        uint32_t bufferMs;
    };

    /**
     * The kind of device that this build has. Throws ToolError naming the device and what to do:
     * it does not exist, another program has it, it does not take the rate or the samples.
     */
    static std::unique_ptr<PlayDevice> open(const Config& config);

    PlayDevice() = default;
    virtual ~PlayDevice() = default;  // what was not played yet is dropped
    PlayDevice(const PlayDevice&) = delete;
    PlayDevice& operator=(const PlayDevice&) = delete;

    /**
     * Waits until the device has taken all frames. False: Ctrl-C or SIGTERM ended the waiting, and
     * the rest is not to be heard. A device that is gone, or stands still for seconds, throws
     * ToolError.
     */
    virtual bool write(const void* frames, size_t frameCount) = 0;
    /** Waits until everything was heard; Ctrl-C and SIGTERM drop the rest. */
    virtual void drain() = 0;
    /** How often the device ran out of audio. */
    virtual int64_t underrunCount() const = 0;
};

}  // namespace android
