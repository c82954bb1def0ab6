// For builds without ALSA: everything works but playing.
#include "tools/device/PlayDevice.h"
#include "tools/process/ToolError.h"

namespace android {

std::unique_ptr<PlayDevice> PlayDevice::open(const Config& config) {
    throw ToolError("sound device '" + config.name +
                    "': this streamproxy was built without ALSA; build it with libasound2-dev, or "
                    "mix into a file with -o");
}

}  // namespace android
