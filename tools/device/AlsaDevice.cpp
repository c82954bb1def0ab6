#include "tools/device/AlsaDevice.h"

#include <fmt/format.h>

#include <cerrno>
#include <thread>

#include "tools/audio/FullScale.h"
#include "tools/audio/Levels.h"
#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWaitMs = 100;
// Shorter than what the mix waits for its next block: the device is to be named, not the library.
constexpr std::chrono::seconds kPatience{3};
constexpr std::chrono::milliseconds kDrainPoll{10};

// ALSA writes its own account of every failure to the terminal otherwise, across the meters.
void keepSilent(const char* /*file*/, int /*line*/, const char* /*function*/, int /*status*/,
                const char* /*format*/, ...) {}

std::string remedyOf(int status) {
    switch (-status) {
        case EBUSY:
            return "another program has it; end that one, or name a device that can be shared, "
                   "such as default";
        case EACCES:
        case EPERM:
            return "be in the group audio, or name another with --device";
        case ECONNREFUSED:
            return "no sound server answers; start it, or name a device that needs none, such as "
                   "plughw:0, with --device";
        default:
            return "'aplay -L' lists devices; name one with --device, or mix into a file with -o";
    }
}

}  // namespace

std::unique_ptr<PlayDevice> PlayDevice::open(const Config& config) {
    return std::make_unique<AlsaDevice>(config);
}

AlsaDevice::AlsaDevice(const Config& config) : mConfig(config) {
    snd_lib_error_set_handler(keepSilent);
    openDevice();
    setFormat();
}

void AlsaDevice::openDevice() {
    snd_pcm_t* pcm = nullptr;
    const int status =
        snd_pcm_open(&pcm, mConfig.name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    if (status < 0) {
        fail(std::string("can't be opened: ") + snd_strerror(status) + "; " + remedyOf(status));
    }
    mPcm.reset(pcm);
}

void AlsaDevice::setFormat() {
    const snd_pcm_format_t format =
        mConfig.bits == 16 ? SND_PCM_FORMAT_S16_LE : SND_PCM_FORMAT_S32_LE;
    constexpr int kResample = 1;
    const int status =
        snd_pcm_set_params(mPcm.get(), format, SND_PCM_ACCESS_RW_INTERLEAVED, Levels::kChannels,
                           mConfig.rateHz, kResample, mConfig.bufferMs * 1000);
    if (status < 0) {
        fail(
            fmt::format("does not take {} Hz, {}-bit stereo ({}); name one that converts, such as "
                        "default or plughw:0, or choose another --rate or --format",
                        mConfig.rateHz, mConfig.bits, snd_strerror(status)));
    }
}

bool AlsaDevice::write(const void* frames, size_t frameCount) {
    const uint8_t* bytes = deviceFrames(frames, frameCount);
    const size_t frameBytes = Levels::kChannels * mConfig.bits / 8;
    size_t done = 0;
    Time lastProgress = Clock::now();
    while (done < frameCount && Interrupt::signalNumber() == 0) {
        const snd_pcm_sframes_t taken =
            snd_pcm_writei(mPcm.get(), bytes + done * frameBytes, frameCount - done);
        if (taken > 0) {
            done += static_cast<size_t>(taken);
            lastProgress = Clock::now();
            continue;
        }
        if (Clock::now() - lastProgress > kPatience) {
            fail(
                fmt::format("has taken no audio for {} s; see whether it is connected, or name "
                            "another with --device",
                            kPatience.count()));
        }
        if (taken == 0 || taken == -EAGAIN) {
            waitForRoom();
        } else {
            recover(static_cast<int>(taken));
        }
    }
    return done == frameCount;
}

const uint8_t* AlsaDevice::deviceFrames(const void* frames, size_t frameCount) {
    if (mConfig.bits == 16) {
        return static_cast<const uint8_t*>(frames);
    }
    mFullScale.resize(frameCount * Levels::kChannels);
    for (size_t i = 0; i < mFullScale.size(); ++i) {
        mFullScale[i] = heldSample(fullScaleSample(frames, i, mConfig.bits));
    }
    return reinterpret_cast<const uint8_t*>(mFullScale.data());
}

void AlsaDevice::waitForRoom() {
    const int status = snd_pcm_wait(mPcm.get(), kWaitMs);
    if (status < 0 && status != -EINTR) {
        recover(status);
    }
}

void AlsaDevice::recover(int status) {
    mUnderrunCount += status == -EPIPE ? 1 : 0;
    constexpr int kIsSilent = 1;
    const int recovered = snd_pcm_recover(mPcm.get(), status, kIsSilent);
    if (recovered < 0) {
        fail(std::string("playing failed: ") + snd_strerror(recovered) +
             "; see whether it is connected, or name another with --device");
    }
}

void AlsaDevice::drain() {
    // It holds a buffer's length at most; what does not end after that is broken, but was heard.
    const Time giveUp = Clock::now() + std::chrono::milliseconds(mConfig.bufferMs) + kPatience;
    while (Interrupt::signalNumber() == 0 && Clock::now() < giveUp) {
        if (snd_pcm_drain(mPcm.get()) != -EAGAIN) {
            return;
        }
        std::this_thread::sleep_for(kDrainPoll);
    }
    snd_pcm_drop(mPcm.get());
}

void AlsaDevice::fail(const std::string& what) const {
    throw ToolError("sound device '" + mConfig.name + "': " + what);
}

}  // namespace android
