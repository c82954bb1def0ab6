// The exported functions. Their contracts stand in interface/streamproxy.h.

#include <cerrno>
#include <cstdlib>
#include <new>

#include "android/log.h"
#include "cutils/properties.h"
#include "interface/CallbackScope.h"
#include "interface/OutputWrapper.h"
#include "interface/streamproxy.h"
#include "pipeline/AudioPipeline.h"
#include "stream/AudioStream.h"
#include "stream/TunnelStream.h"
#include "utils/Mutex.h"
#include "utils/Vector.h"

using android::AudioPipeline;
using android::AudioStream;
using android::CallbackScope;
using android::Mutex;
using android::OutputWrapper;
using android::sp;
using android::TunnelStream;
using android::Vector;

namespace {

constexpr const char* kTag = "stream_wrapper";
constexpr int kDefaultBufferFrameCount = 2000;

/**
 * The pipeline slot. Its owner is whoever holds the global lock; the lock of its own is for the two
 * functions that look without the global one, and is never held while anything else is taken.
 */
class PipelineSlot {
public:
    PipelineSlot() = default;
    /** Releases the pipeline, unless the process ends from inside a callback: the worker can't wait
     *  for itself, and leaves what it uses to the system. */
    ~PipelineSlot() {
        const Mutex::Autolock lock(mLock);
        if (CallbackScope::isActive() && mPipeline != nullptr) {
            mPipeline->incStrong(this);
            sAbandoned = mPipeline.get();
        }
    }
    PipelineSlot(const PipelineSlot&) = delete;
    PipelineSlot& operator=(const PipelineSlot&) = delete;

    sp<AudioPipeline> get() {
        const Mutex::Autolock lock(mLock);
        return mPipeline;
    }
    /** Returns what was there, for the caller to release outside of the lock. */
    sp<AudioPipeline> exchange(sp<AudioPipeline> pipeline) {
        const Mutex::Autolock lock(mLock);
        mPipeline.swap(pipeline);
        return pipeline;
    }

private:
    static inline volatile AudioPipeline* sAbandoned = nullptr;  // for whoever counts leaks

    Mutex mLock{"pipeline slot"};
    sp<AudioPipeline> mPipeline GUARDED_BY(mLock);
};

// Made in this order when the library is loaded, released in the reverse order when it is unloaded:
// releasing the slot stops the mixer thread, which uses the key until then.
CallbackScope::Key gCallbackKey;
Mutex gLock("global");  // its place among the locks: platform/utils/LockOrder.cpp
PipelineSlot gPipeline;
Vector<sp<OutputWrapper>> gOutputs GUARDED_BY(gLock);  // in the order registered

/** True, with an error line, where a call would wait for the callback it is made from. */
bool refusedInCallback(const char* function) {
    if (!CallbackScope::isActive()) {
        return false;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, not allowed inside an output callback",
                        function);
    return true;
}

/** The pipeline in the slot when it is this one, otherwise null. */
sp<AudioPipeline> currentPipeline(const AudioPipeline* pipeline) {
    sp<AudioPipeline> current = gPipeline.get();
    return current.get() == pipeline ? current : nullptr;
}

/** The index in the registry, or -1. */
ssize_t findOutput_l(void* cookie, audio_proxy_output_callback_t callback) REQUIRES(gLock) {
    for (size_t i = 0; i < gOutputs.size(); ++i) {
        if (gOutputs[i]->isFor(cookie, callback)) {
            return static_cast<ssize_t>(i);
        }
    }
    return -1;
}

int bufferFrameCount() {
    char value[PROPERTY_VALUE_MAX] = {};
    const int length = property_get("persist.vendor.hwsync.fbuffer.size", value, nullptr);
    return length >= 1 ? static_cast<int>(strtol(value, nullptr, 10)) : kDefaultBufferFrameCount;
}

}  // namespace

// Nothing below throws by itself, but containers and strings do where memory is out, and no
// exception may get to a host: each function that may allocate catches it.

AudioPipeline* create_audio_proxy_pipeline() try {
    if (refusedInCallback(__func__)) {
        return nullptr;
    }
    const Mutex::Autolock lock(gLock);
    sp<AudioPipeline> pipeline = gPipeline.get();
    if (pipeline == nullptr) {
        pipeline = new AudioPipeline();
        const int status = pipeline->initCheck();
        if (status != 0) {
            // Without its worker it would swallow a second of every write, for ever.
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to start the pipeline: %d",
                                __func__, status);
            return nullptr;
        }
        gPipeline.exchange(pipeline);
    }
    return pipeline.get();
} catch (const std::bad_alloc&) {
    return nullptr;
}

int destroy_audio_proxy_pipeline(AudioPipeline* pipeline) {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(gLock);
    if (gPipeline.get().get() != pipeline) {
        return -EINVAL;
    }
    gPipeline.exchange(nullptr);
    return 0;
}

int audio_proxy_pipeline_dump(AudioPipeline* pipeline, int fd) try {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    if (current != nullptr) {
        current->dump(fd);
    }
    return 0;
} catch (const std::bad_alloc&) {
    return 0;
}

int audio_proxy_pipeline_register_output(AudioPipeline* pipeline,
                                         const audio_proxy_config_t* config, void* cookie,
                                         audio_proxy_output_callback_t callback) try {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(gLock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    if (current == nullptr || config == nullptr) {
        return -EINVAL;
    }
    if (findOutput_l(cookie, callback) >= 0) {
        return 0;
    }
    const sp<OutputWrapper> output(new OutputWrapper(*config, cookie, callback));
    gOutputs.setCapacity(gOutputs.size() + 1);  // none plays that could not be listed
    const int status = current->registerOutput(output);
    if (status == 0) {
        gOutputs.add(output);
    }
    return status;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int audio_proxy_pipeline_unregister_output(AudioPipeline* pipeline, void* cookie,
                                           audio_proxy_output_callback_t callback) {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(gLock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    if (current == nullptr) {
        return -EINVAL;
    }
    const ssize_t index = findOutput_l(cookie, callback);
    if (index < 0) {
        return 0;
    }
    const int status = current->unregisterOutput(gOutputs[static_cast<size_t>(index)]);
    gOutputs.removeAt(static_cast<size_t>(index));
    return status;
}

int audio_proxy_pipeline_set_parameters(AudioPipeline* pipeline, const char* keyValuePairs) try {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(gLock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    return current != nullptr ? current->setParameters(keyValuePairs) : -EINVAL;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

audio_proxy_stream_t* create_audio_proxy_stream(const audio_proxy_config_t* config) try {
    if (refusedInCallback(__func__) || config == nullptr) {
        return nullptr;
    }
    const int frameCount = bufferFrameCount();
    const auto format = static_cast<audio_format_t>(config->format);
    if (config->format >> 24 != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Unsupported format %x", __func__,
                            config->format);
        return nullptr;
    }
    const auto flags = static_cast<audio_output_flags_t>(config->flags);
    sp<AudioStream> stream;
    if ((config->flags & AUDIO_OUTPUT_FLAG_HW_AV_SYNC) != 0) {
        stream = new TunnelStream(config->sample_rate, format, config->channel_mask, flags,
                                  static_cast<uint32_t>(frameCount));
    } else {
        stream = new AudioStream(config->sample_rate, format, config->channel_mask, flags,
                                 static_cast<size_t>(static_cast<ssize_t>(frameCount)));
    }
    const Mutex::Autolock lock(gLock);
    const sp<AudioPipeline> pipeline = gPipeline.get();
    if (pipeline == nullptr) {
        __android_log_print(
            ANDROID_LOG_ERROR, kTag,
            "%s, unsupported audio stream: sameple rate %d, format %x, channel mask "
            "%x, flag %x",
            __func__, static_cast<int>(config->sample_rate), config->format, config->channel_mask,
            config->flags);
        return nullptr;
    }
    const int status = pipeline->addAudioStream(stream);
    if (status != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to cache stream %d", __func__,
                            status);
        return nullptr;
    }
    return stream.get();
} catch (const std::bad_alloc&) {
    return nullptr;
}

int audio_proxy_stream_set_parameters(audio_proxy_stream_t* stream, const char* keyValuePairs) {
    return stream != nullptr ? stream->setParameters(keyValuePairs) : -EINVAL;
}

int audio_proxy_stream_open(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->open() : -EINVAL;
}

int audio_proxy_stream_pause(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->pause() : -EINVAL;
}

int audio_proxy_stream_resume(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->resume() : -EINVAL;
}

int audio_proxy_stream_close(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->close() : -EINVAL;
}

int audio_proxy_stream_flush(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->flush() : -EINVAL;
}

int audio_proxy_stream_write(audio_proxy_stream_t* stream, const void* buffer, size_t bytes) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    if (!stream->isOpened()) {
        stream->open();
    }
    return stream->write(buffer, bytes);
}

int audio_proxy_stream_set_volume(audio_proxy_stream_t* stream, float left, float right) {
    return stream != nullptr ? stream->setVolume(left, right) : -EINVAL;
}

int audio_proxy_stream_set_downstream_latency(audio_proxy_stream_t* stream, unsigned long latencyMs,
                                              long offsetMs) {
    return stream != nullptr ? stream->setDownstreamLatency(latencyMs, offsetMs) : -EINVAL;
}

uint32_t audio_proxy_stream_get_latency(audio_proxy_stream_t* stream) {
    return stream != nullptr ? stream->getLatency() : static_cast<uint32_t>(-EINVAL);
}

int audio_proxy_stream_dump(audio_proxy_stream_t* stream, int fd) {
    return stream != nullptr ? stream->dump(fd) : -EINVAL;
}

int destroy_audio_proxy_stream(audio_proxy_stream_t* stream) {
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    // A handle does not outlive its pipeline: without one there is nothing that may be touched.
    const sp<AudioPipeline> pipeline = gPipeline.get();
    if (stream == nullptr || pipeline == nullptr) {
        return -EINVAL;
    }
    stream->close();
    const sp<AudioStream> held(static_cast<AudioStream*>(stream));
    return pipeline->removeAudioStream(held);
}
