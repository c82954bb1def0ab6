#pragma once

#include <atomic>

#include "pipeline/AudioPipeline.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"

namespace android {

/**
 * Holds the one pipeline. Only the holder of the global lock changes it; the slot's own lock is for
 * the functions that read it without the global one.
 */
class PipelineSlot {
public:
    sp<AudioPipeline> get() {
        const Mutex::Autolock lock(mLock);
        return mPipeline;
    }
    /** The former pipeline, for the caller to release outside the lock. */
    sp<AudioPipeline> exchange(sp<AudioPipeline> pipeline) {
        const Mutex::Autolock lock(mLock);
        mIsFilled.store(pipeline != nullptr, std::memory_order_relaxed);
        mPipeline.swap(pipeline);
        return pipeline;
    }
    /** For a forked process: a thread that does not exist there may hold the lock. */
    bool isFilled() const { return mIsFilled.load(std::memory_order_relaxed); }
    bool isUsable() NO_THREAD_SAFETY_ANALYSIS {
        const bool isFree = mLock.tryLock() == OK;
        if (isFree) {
            mLock.unlock();
        }
        return isFree;
    }

private:
    Mutex mLock{"pipeline slot"};  // nothing else is taken under it
    sp<AudioPipeline> mPipeline GUARDED_BY(mLock);
    std::atomic<bool> mIsFilled{false};  // written under mLock
};

}  // namespace android
