#pragma once

#include "interface/streamproxy.h"
#include "pipeline/AudioOutput.h"

namespace android {

/** A host's callback as an output of the mixer. Threads: immutable; delivers on the worker. */
class OutputWrapper : public AudioOutput {
public:
    OutputWrapper(const audio_proxy_config_t& config, void* cookie,
                  audio_proxy_output_callback_t callback);

    /** The callback's result; -ENODEV without one. */
    ssize_t onDataProcessed(void* buffer, size_t byteCount) override;

    /** The host names this output by this pair. */
    bool isFor(void* cookie, audio_proxy_output_callback_t callback) const;

private:
    void* const mCookie;
    const audio_proxy_output_callback_t mCallback;  // may be null
};

}  // namespace android
