#pragma once

#include <alsa/asoundlib.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/device/PlayDevice.h"

namespace android {

/**
 * An ALSA device. It is opened so that no call waits inside ALSA: a device that another program
 * has, or one that stopped, must not keep Ctrl-C from ending the command.
 */
class AlsaDevice : public PlayDevice {
public:
    explicit AlsaDevice(const Config& config);

    bool write(const void* frames, size_t frameCount) override;
    void drain() override;
    int64_t underrunCount() const override {
        return mUnderrunCount.load(std::memory_order_relaxed);
    }

private:
    using Time = std::chrono::steady_clock::time_point;

    void openDevice();
    void setFormat();
    /** Frames as the device takes them. */
    const uint8_t* deviceFrames(const void* frames, size_t frameCount);
    void waitForRoom();
    /** Goes on after an underrun or a suspended machine; throws for all other errors. */
    void recover(int status);
    [[noreturn]] void fail(const std::string& what) const;

    struct ClosePcm {
        void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
    };

    const Config mConfig;
    std::unique_ptr<snd_pcm_t, ClosePcm> mPcm;
    std::vector<int32_t> mFullScale;  // one block of a 32-bit mix
    std::atomic<int64_t> mUnderrunCount{0};
};

}  // namespace android
