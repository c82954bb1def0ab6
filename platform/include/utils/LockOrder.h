#pragma once

namespace android {

/**
 * Builds that define STREAMPROXY_CHECK_LOCK_ORDER: aborts when a thread takes a lock against the
 * order that LockOrder.cpp declares, even if no other thread was there to make a deadlock of it.
 *
 * Threads: any; each has its own record of what it holds.
 */
class LockOrder {
public:
    /** Before the lock is taken. Aborts with a message on standard error: under the locks held
     *  there is no place for it, or its name has no place at all. */
    static void take(const char* name, const void* lock);
    /** Before it is released. Aborts when this thread does not hold it. */
    static void release(const void* lock);
    /** Where a lock must be held. Aborts when this thread does not hold it. */
    static void assertHeld(const char* name, const void* lock);
};

}  // namespace android
