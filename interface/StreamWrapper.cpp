// The exported functions; interface/streamproxy.h has their contracts.

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "android/log.h"
#include "cutils/properties.h"
#include "interface/CallbackScope.h"
#include "interface/LibraryState.h"
#include "interface/OutputWrapper.h"
#include "interface/StreamHandles.h"
#include "interface/streamproxy.h"
#include "pipeline/AudioPipeline.h"
#include "stream/AudioStream.h"
#include "stream/TunnelStream.h"
#include "system/audio.h"
#include "utils/Mutex.h"

using android::AudioPipeline;
using android::AudioStream;
using android::CallbackScope;
using android::LibraryState;
using android::Mutex;
using android::OutputWrapper;
using android::sp;
using android::StreamHandles;
using android::TunnelStream;

namespace {

constexpr const char* kTag = "stream_wrapper";
// A host's numbers are passed on as the platform's.
static_assert(STREAMPROXY_FORMAT_PCM_16_BIT == AUDIO_FORMAT_PCM_16_BIT &&
              STREAMPROXY_FORMAT_PCM_32_BIT == AUDIO_FORMAT_PCM_32_BIT &&
              STREAMPROXY_CHANNEL_MASK_MONO == AUDIO_CHANNEL_OUT_MONO &&
              STREAMPROXY_CHANNEL_MASK_STEREO == AUDIO_CHANNEL_OUT_STEREO &&
              STREAMPROXY_FLAG_HW_AV_SYNC == AUDIO_OUTPUT_FLAG_HW_AV_SYNC);
constexpr const char* kBufferProperty = "persist.vendor.hwsync.fbuffer.size";
constexpr int kDefaultBufferFrameCount = 2000;
// Frames. Below, no block is ever whole; above, a host paced by its writes fills the memory.
constexpr int kMinBufferFrameCount = 64;
constexpr int kMaxBufferFrameCount = 1'000'000;

LibraryState& state() {
    return LibraryState::instance();
}

/** True if the pipeline is another process's or must not be waited for any more. Logs an error the
 *  first time. */
bool refusedAsAbandoned(const char* function) {
    if (!LibraryState::isAbandoned()) {
        return false;
    }
    static std::atomic<bool> sIsLogged{false};
    if (!sIsLogged.exchange(true, std::memory_order_relaxed)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "%s, refused: the process was forked from one with a pipeline, or ends",
                            function);
    }
    return true;
}

/** True, and logs an error, if a call would wait for the callback it is made from. */
bool refusedInCallback(const char* function) {
    if (!CallbackScope::isActive()) {
        return false;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, not allowed inside an output callback",
                        function);
    return true;
}

/** The pipeline in the slot if it is this one, otherwise null. */
sp<AudioPipeline> currentPipeline(const AudioPipeline* pipeline) {
    sp<AudioPipeline> current = state().pipeline.get();
    return current.get() == pipeline ? current : nullptr;
}

/** The index in the registry, or -1. */
ssize_t findOutput_l(const LibraryState& library, void* cookie,
                     audio_proxy_output_callback_t callback) REQUIRES(library.lock) {
    for (size_t i = 0; i < library.outputs.size(); ++i) {
        if (library.outputs[i]->isFor(cookie, callback)) {
            return static_cast<ssize_t>(i);
        }
    }
    return -1;
}

int bufferFrameCount() {
    char value[PROPERTY_VALUE_MAX] = {};
    if (property_get(kBufferProperty, value, nullptr) < 1) {
        return kDefaultBufferFrameCount;
    }
    const int frameCount = static_cast<int>(strtol(value, nullptr, 10));
    if (frameCount < kMinBufferFrameCount || frameCount > kMaxBufferFrameCount) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, %s is %d frames, usable are %d to %d",
                            "create_audio_proxy_stream", kBufferProperty, frameCount,
                            kMinBufferFrameCount, kMaxBufferFrameCount);
    }
    return frameCount;
}

/** A close would wait its second for the stopped mixer, and delay the end of the process. */
void discardAtProcessEnd(audio_proxy_stream_t& stream) {
    if (LibraryState::hasProcessEnded()) {
        stream.flush();
    }
}

/** Calls the operation with the stream and keeps it until the call ends, whoever destroys it
 *  meanwhile. -EINVAL: null, or a destroyed stream. */
template <typename Operation>
int onStream(const char* function, audio_proxy_stream_t* stream, Operation operation) {
    if (stream == nullptr || refusedAsAbandoned(function)) {
        return -EINVAL;
    }
    const StreamHandles::Found found = state().streams.find(stream);
    return found.kind != StreamHandles::Kind::kGone ? operation(found.stream) : -EINVAL;
}

}  // namespace

// Containers and strings throw when memory runs out, and no exception may reach a host: each
// function that may allocate catches it.

AudioPipeline* create_audio_proxy_pipeline() try {
    if (refusedAsAbandoned(__func__) || refusedInCallback(__func__)) {
        return nullptr;
    }
    const Mutex::Autolock lock(state().lock);
    sp<AudioPipeline> pipeline = state().pipeline.get();
    if (pipeline == nullptr) {
        pipeline = new AudioPipeline();
        const int status = pipeline->initCheck();
        if (status != 0) {
            // Without a worker every write would wait for a whole second.
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to start the pipeline: %d",
                                __func__, status);
            return nullptr;
        }
        LibraryState::watchForProcessEnd(false);
        state().pipeline.exchange(pipeline);
        if (LibraryState::hasProcessEnded()) {
            // The look for a worker to stop has come before this one.
            state().release(state().pipeline.exchange(nullptr));
            return nullptr;
        }
    }
    return pipeline.get();
} catch (const std::bad_alloc&) {
    return nullptr;
}

int destroy_audio_proxy_pipeline(AudioPipeline* pipeline) {
    if (refusedAsAbandoned(__func__)) {
        return -EINVAL;
    }
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(state().lock);
    if (state().pipeline.get().get() != pipeline) {
        return -EINVAL;
    }
    const sp<AudioPipeline> gone = state().pipeline.exchange(nullptr);
    if (gone != nullptr) {
        // Not left to the last reference: a dump on another thread may hold it.
        state().release(gone);
    }
    return 0;
}

int audio_proxy_pipeline_dump(AudioPipeline* pipeline, int fd) try {
    if (refusedAsAbandoned(__func__) || refusedInCallback(__func__)) {
        return 0;
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
    if (refusedAsAbandoned(__func__)) {
        return -EINVAL;
    }
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(state().lock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    if (current == nullptr || config == nullptr) {
        return -EINVAL;
    }
    if (findOutput_l(state(), cookie, callback) >= 0) {
        return 0;
    }
    const sp<OutputWrapper> output(new OutputWrapper(*config, cookie, callback));
    state().outputs.setCapacity(state().outputs.size() + 1);  // no output plays unlisted
    const int status = current->registerOutput(output);
    if (status == 0) {
        state().outputs.add(output);
        LibraryState::watchForProcessEnd(true);
    }
    return status;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int audio_proxy_pipeline_unregister_output(AudioPipeline* pipeline, void* cookie,
                                           audio_proxy_output_callback_t callback) {
    if (refusedAsAbandoned(__func__)) {
        return -EINVAL;
    }
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(state().lock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    if (current == nullptr) {
        return -EINVAL;
    }
    const ssize_t index = findOutput_l(state(), cookie, callback);
    if (index < 0) {
        return 0;
    }
    const int status = current->unregisterOutput(state().outputs[static_cast<size_t>(index)]);
    state().outputs.removeAt(static_cast<size_t>(index));
    return status;
}

int audio_proxy_pipeline_set_parameters(AudioPipeline* pipeline, const char* keyValuePairs) try {
    if (refusedAsAbandoned(__func__)) {
        return -EINVAL;
    }
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    const Mutex::Autolock lock(state().lock);
    const sp<AudioPipeline> current = currentPipeline(pipeline);
    return current != nullptr ? current->setParameters(keyValuePairs) : -EINVAL;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

audio_proxy_stream_t* create_audio_proxy_stream(const audio_proxy_config_t* config) try {
    if (refusedAsAbandoned(__func__) || refusedInCallback(__func__) || config == nullptr) {
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
    if ((config->flags & STREAMPROXY_FLAG_HW_AV_SYNC) != 0) {
        stream = new TunnelStream(config->sample_rate, format, config->channel_mask, flags,
                                  static_cast<uint32_t>(frameCount));
    } else {
        stream = new AudioStream(config->sample_rate, format, config->channel_mask, flags,
                                 static_cast<size_t>(static_cast<ssize_t>(frameCount)));
    }
    const Mutex::Autolock lock(state().lock);
    const sp<AudioPipeline> pipeline = state().pipeline.get();
    if (pipeline == nullptr) {
        __android_log_print(
            ANDROID_LOG_ERROR, kTag,
            "%s, unsupported audio stream: sameple rate %d, format %x, channel mask "
            "%x, flag %x",
            __func__, static_cast<int>(config->sample_rate), config->format, config->channel_mask,
            config->flags);
        return nullptr;
    }
    state().streams.reserve();  // or else the mixer would list it without a handle
    const int status = pipeline->addAudioStream(stream);
    if (status != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to cache stream %d", __func__,
                            status);
        return nullptr;
    }
    state().streams.add(stream);
    return stream.get();
} catch (const std::bad_alloc&) {
    return nullptr;
}

int audio_proxy_stream_set_parameters(audio_proxy_stream_t* stream, const char* keyValuePairs) {
    return onStream(__func__, stream,
                    [=](const auto&) { return stream->setParameters(keyValuePairs); });
}

int audio_proxy_stream_open(audio_proxy_stream_t* stream) {
    return onStream(__func__, stream, [=](const auto&) { return stream->open(); });
}

int audio_proxy_stream_pause(audio_proxy_stream_t* stream) {
    return onStream(__func__, stream, [=](const auto&) { return stream->pause(); });
}

int audio_proxy_stream_resume(audio_proxy_stream_t* stream) {
    return onStream(__func__, stream, [=](const auto&) { return stream->resume(); });
}

int audio_proxy_stream_close(audio_proxy_stream_t* stream) {
    return onStream(__func__, stream, [=](const auto&) {
        discardAtProcessEnd(*stream);
        return stream->close();
    });
}

int audio_proxy_stream_flush(audio_proxy_stream_t* stream) {
    return onStream(__func__, stream, [=](const auto&) { return stream->flush(); });
}

int audio_proxy_stream_write(audio_proxy_stream_t* stream, const void* buffer, size_t bytes) {
    return onStream(__func__, stream, [=](const sp<AudioStream>& own) {
        if (own != nullptr) {
            return own->openAndWrite(buffer, bytes);
        }
        if (!stream->isOpened()) {
            stream->open();
        }
        return stream->write(buffer, bytes);
    });
}

int audio_proxy_stream_set_volume(audio_proxy_stream_t* stream, float left, float right) {
    return onStream(__func__, stream, [=](const auto&) { return stream->setVolume(left, right); });
}

int audio_proxy_stream_set_downstream_latency(audio_proxy_stream_t* stream, unsigned long latencyMs,
                                              long offsetMs) {
    return onStream(__func__, stream,
                    [=](const auto&) { return stream->setDownstreamLatency(latencyMs, offsetMs); });
}

uint32_t audio_proxy_stream_get_latency(audio_proxy_stream_t* stream) {
    return static_cast<uint32_t>(onStream(
        __func__, stream, [=](const auto&) { return static_cast<int>(stream->getLatency()); }));
}

int audio_proxy_stream_dump(audio_proxy_stream_t* stream, int fd) {
    return onStream(__func__, stream, [=](const auto&) { return stream->dump(fd); });
}

int destroy_audio_proxy_stream(audio_proxy_stream_t* stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    if (refusedAsAbandoned(__func__)) {
        return -EINVAL;
    }
    if (refusedInCallback(__func__)) {
        return -ENOSYS;
    }
    // A handle does not outlive its pipeline: without one nothing may be touched.
    const sp<AudioPipeline> pipeline = state().pipeline.get();
    if (pipeline == nullptr) {
        return -EINVAL;
    }
    // First: no call that begins from here on reaches the stream.
    const StreamHandles::Found found = state().streams.remove(stream);
    if (found.kind == StreamHandles::Kind::kGone) {
        return -EINVAL;
    }
    const sp<AudioStream> held(static_cast<AudioStream*>(stream));
    if (found.kind == StreamHandles::Kind::kLive) {
        held->retire();
    }
    discardAtProcessEnd(*stream);
    held->close();
    return pipeline->removeAudioStream(held);
}
