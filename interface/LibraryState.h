#pragma once

#include "interface/CallbackScope.h"
#include "interface/OutputWrapper.h"
#include "interface/PipelineSlot.h"
#include "interface/StreamHandles.h"
#include "utils/Mutex.h"
#include "utils/Vector.h"

namespace android {

/**
 * The library's state in the process, created when the library is loaded. It ends so:
 *   - the library is unloaded: the worker is joined and everything is released;
 *   - the process ends: the worker is joined, so that no callback meets a host that is being torn
 *     down. The rest is left to the system, because other threads may still be in a call. If a
 *     callback hangs, the pipeline is abandoned: nothing may wait for it any more;
 *   - the process is forked from one with a pipeline: the pipeline is abandoned too. The worker and
 *     the threads that may hold locks exist in the other process only.
 */
struct LibraryState {
    static LibraryState& instance();

    /** The pipeline may not be touched, and no other is created. */
    static bool isAbandoned();

    /** When the process ends, the worker is stopped before anything is destroyed that the host
     *  created before this call. Once for the first pipeline, once for the first output. */
    static void watchForProcessEnd(bool hasOutput);
    /** The process is ending, and no worker takes frames any more. */
    static bool hasProcessEnded();

    LibraryState() = default;
    ~LibraryState();
    LibraryState(const LibraryState&) = delete;
    LibraryState& operator=(const LibraryState&) = delete;

    /** Stops the worker, then closes and drops every stream left. */
    void release(const sp<AudioPipeline>& pipeline);

    CallbackScope::Key callbackKey;
    Mutex lock{"global"};  // its place among the locks: platform/utils/LockOrder.cpp
    PipelineSlot pipeline;
    Vector<sp<OutputWrapper>> outputs GUARDED_BY(lock);  // in the order registered
    StreamHandles streams;
};

}  // namespace android
