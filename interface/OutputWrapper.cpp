#include "interface/OutputWrapper.h"

#include <cerrno>

#include "interface/CallbackScope.h"

namespace android {

OutputWrapper::OutputWrapper(const audio_proxy_config_t& config, void* cookie,
                             audio_proxy_output_callback_t callback)
    : AudioOutput(config.sample_rate, static_cast<audio_format_t>(config.format),
                  config.channel_mask, static_cast<audio_output_flags_t>(config.flags)),
      mCookie(cookie),
      mCallback(callback) {}

ssize_t OutputWrapper::onDataProcessed(void* buffer, size_t byteCount) {
    if (mCallback == nullptr) {
        return -ENODEV;
    }
    const CallbackScope scope;
    return mCallback(mCookie, buffer, byteCount);
}

bool OutputWrapper::isFor(void* cookie, audio_proxy_output_callback_t callback) const {
    return mCookie == cookie && mCallback == callback;
}

}  // namespace android
