#include "sync/PriorityMutex.h"

namespace android {

PriorityMutex::PriorityMutex([[maybe_unused]] const char* name)
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
    : mName(name)
#endif
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    // A system without inheritance, whether it says so here or when the lock is first taken, gets a
    // plain lock, which is as right.
    if (pthread_mutex_init(&mMutex, &attributes) != 0 || pthread_mutex_lock(&mMutex) != 0) {
        pthread_mutex_init(&mMutex, nullptr);
    } else {
        pthread_mutex_unlock(&mMutex);
    }
    pthread_mutexattr_destroy(&attributes);
}

}  // namespace android
