#pragma once

#include "interface/CallbackScope.h"
#include "interface/OutputWrapper.h"
#include "interface/PipelineSlot.h"
#include "interface/StreamHandles.h"
#include "utils/Mutex.h"
#include "utils/Vector.h"

namespace android {

/**
 * What the library keeps for the process, made when it is loaded. How it ends depends:
 *   - unloaded: the worker is joined and everything is released;
 *   - the process ends: the worker is joined, so that no callback meets a host that is being taken
 *     down; streams and all else are left to the system, for other threads may still be in a call.
 *     Where a callback hangs, the pipeline is abandoned: nothing may wait for it any more;
 *   - a process forked from one with a pipeline: that is abandoned too. The worker exists in the other
 *     process only, and locks may be held by threads that exist there only.
 */
struct LibraryState {
    static LibraryState& instance();

    /** Nothing of the pipeline may be touched, and no other is made. */
    static bool isAbandoned();

    /** At the end of the process the worker is stopped before all is destroyed that the host made
     *  before this call; once for the first pipeline, once for the first output. */
    static void watchForProcessEnd(bool hasOutput);
    /** The process ends, and no worker takes frames any more. */
    static bool hasProcessEnded();

    LibraryState() = default;
    ~LibraryState();
    LibraryState(const LibraryState&) = delete;
    LibraryState& operator=(const LibraryState&) = delete;

    /** Stops the worker, then lets go of every stream that is left. */
    void release(const sp<AudioPipeline>& pipeline);

    CallbackScope::Key callbackKey;
    Mutex lock{"global"};  // its place among the locks: platform/utils/LockOrder.cpp
    PipelineSlot pipeline;
    Vector<sp<OutputWrapper>> outputs GUARDED_BY(lock);  // in the order registered
    StreamHandles streams;
};

}  // namespace android
