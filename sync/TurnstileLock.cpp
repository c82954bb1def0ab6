#include "sync/TurnstileLock.h"

namespace android {

template <typename Lock>
void TurnstileLock<Lock>::lock() NO_THREAD_SAFETY_ANALYSIS {
    mTurnstile.lock();
    mLock.lock();
    mTurnstile.unlock();
}

template <typename Lock>
void TurnstileLock<Lock>::unlock() NO_THREAD_SAFETY_ANALYSIS {
    mLock.unlock();
}

template void TurnstileLock<Mutex>::lock();
template void TurnstileLock<Mutex>::unlock();
template void TurnstileLock<PriorityMutex>::lock();
template void TurnstileLock<PriorityMutex>::unlock();

}  // namespace android
