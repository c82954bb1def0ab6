#pragma once

#include "utils/Mutex.h"

namespace android {

/** Holds a lock of this folder for a scope. */
template <typename Lock>
class SCOPED_CAPABILITY ScopedLock {
public:
    explicit ScopedLock(Lock& lock) ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
    ~ScopedLock() RELEASE() { mLock.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Lock& mLock;
};

}  // namespace android
