#pragma once

#include <string>

#include "interface/streamproxy.h"

namespace android {

/**
 * The library, loaded at run time as an audio HAL loads it.
 * Invariant: every function pointer is set; construction throws ToolError otherwise.
 * Threads:   the pointers never change, any thread may call through them.
 */
class Library {
public:
    /** An empty path means the library's soname, libstreamproxy.so.0: in ../lib beside the running
     *  program, then where the loader searches. */
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** The file that the loader took, links resolved. */
    std::string file() const;
    /** As that file's name ends: "0.1.0"; "unknown" where it has none. */
    std::string version() const;

private:
    template <typename Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }
    void* symbol(const char* name) const;

    std::string mPath;
    void* mHandle;  // declared before the pointers, which are looked up in it

public:
#define STREAMPROXY_FUNCTION(member, name) \
    decltype(&::name) const member = find<decltype(::name)>(#name)
    STREAMPROXY_FUNCTION(createPipeline, create_audio_proxy_pipeline);
    STREAMPROXY_FUNCTION(destroyPipeline, destroy_audio_proxy_pipeline);
    STREAMPROXY_FUNCTION(dumpPipeline, audio_proxy_pipeline_dump);
    STREAMPROXY_FUNCTION(registerOutput, audio_proxy_pipeline_register_output);
    STREAMPROXY_FUNCTION(unregisterOutput, audio_proxy_pipeline_unregister_output);
    STREAMPROXY_FUNCTION(createStream, create_audio_proxy_stream);
    STREAMPROXY_FUNCTION(destroyStream, destroy_audio_proxy_stream);
    STREAMPROXY_FUNCTION(pauseStream, audio_proxy_stream_pause);
    STREAMPROXY_FUNCTION(flushStream, audio_proxy_stream_flush);
    STREAMPROXY_FUNCTION(writeStream, audio_proxy_stream_write);
    STREAMPROXY_FUNCTION(setStreamVolume, audio_proxy_stream_set_volume);
    STREAMPROXY_FUNCTION(setStreamParameters, audio_proxy_stream_set_parameters);
    STREAMPROXY_FUNCTION(setDownstreamLatency, audio_proxy_stream_set_downstream_latency);
    STREAMPROXY_FUNCTION(getStreamLatency, audio_proxy_stream_get_latency);
#undef STREAMPROXY_FUNCTION
};

}  // namespace android
