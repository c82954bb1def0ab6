#pragma once

#include "interface/streamproxy.h"

/** The exported functions of the library, loaded so that it can be unloaded again. */
struct Library {
    decltype(&create_audio_proxy_pipeline) createPipeline;
    decltype(&destroy_audio_proxy_pipeline) destroyPipeline;
    decltype(&audio_proxy_pipeline_dump) dumpPipeline;
    decltype(&audio_proxy_pipeline_register_output) registerOutput;
    decltype(&audio_proxy_pipeline_unregister_output) unregisterOutput;
    decltype(&audio_proxy_pipeline_set_parameters) setPipelineParameters;
    decltype(&create_audio_proxy_stream) createStream;
    decltype(&destroy_audio_proxy_stream) destroyStream;
    decltype(&audio_proxy_stream_set_parameters) setParameters;
    decltype(&audio_proxy_stream_open) open;
    decltype(&audio_proxy_stream_pause) pause;
    decltype(&audio_proxy_stream_resume) resume;
    decltype(&audio_proxy_stream_close) close;
    decltype(&audio_proxy_stream_flush) flush;
    decltype(&audio_proxy_stream_write) write;
    decltype(&audio_proxy_stream_set_volume) setVolume;
    decltype(&audio_proxy_stream_set_downstream_latency) setDownstreamLatency;
    decltype(&audio_proxy_stream_get_latency) getLatency;
    decltype(&audio_proxy_stream_dump) dump;

    /** Ends the process if the library can't be loaded. */
    static const Library& instance();
    /** Whether it is gone from the process then. */
    static bool unload();
};
