#include "fuzz/simulate/Library.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

void* gHandle = nullptr;

template <typename Function>
void find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(gHandle, name));
    if (function == nullptr) {
        fprintf(stderr, "simulate: %s\n", dlerror());
        exit(1);
    }
}

Library load() {
    gHandle = dlopen(STREAMPROXY_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (gHandle == nullptr) {
        fprintf(stderr, "simulate: %s\n", dlerror());
        exit(1);
    }
    Library library = {};
    find(library.createPipeline, "create_audio_proxy_pipeline");
    find(library.destroyPipeline, "destroy_audio_proxy_pipeline");
    find(library.dumpPipeline, "audio_proxy_pipeline_dump");
    find(library.registerOutput, "audio_proxy_pipeline_register_output");
    find(library.unregisterOutput, "audio_proxy_pipeline_unregister_output");
    find(library.setPipelineParameters, "audio_proxy_pipeline_set_parameters");
    find(library.createStream, "create_audio_proxy_stream");
    find(library.destroyStream, "destroy_audio_proxy_stream");
    find(library.setParameters, "audio_proxy_stream_set_parameters");
    find(library.open, "audio_proxy_stream_open");
    find(library.pause, "audio_proxy_stream_pause");
    find(library.resume, "audio_proxy_stream_resume");
    find(library.close, "audio_proxy_stream_close");
    find(library.flush, "audio_proxy_stream_flush");
    find(library.write, "audio_proxy_stream_write");
    find(library.setVolume, "audio_proxy_stream_set_volume");
    find(library.setDownstreamLatency, "audio_proxy_stream_set_downstream_latency");
    find(library.getLatency, "audio_proxy_stream_get_latency");
    find(library.dump, "audio_proxy_stream_dump");
    return library;
}

}  // namespace

const Library& Library::instance() {
    static const Library library = load();
    return library;
}

bool Library::unload() {
    return dlclose(gHandle) == 0 && dlopen(STREAMPROXY_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}
