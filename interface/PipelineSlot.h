#pragma once

#include <atomic>

#include "pipeline/AudioPipeline.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"

namespace android {

/**
 * The place of the one pipeline. Its owner is whoever holds the global lock; the lock of its own is
 * for the two functions that look without the global one.
 */
class PipelineSlot {
public:
    sp<AudioPipeline> get() {
        const Mutex::Autolock lock(mLock);
        return mPipeline;
    }
    /** What was there, for the caller to release outside of the lock. */
    sp<AudioPipeline> exchange(sp<AudioPipeline> pipeline) {
        const Mutex::Autolock lock(mLock);
        mIsFilled.store(pipeline != nullptr, std::memory_order_relaxed);
        mPipeline.swap(pipeline);
        return pipeline;
    }
    /** For a process that can't count on the lock: a thread that is not there may hold it. */
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
