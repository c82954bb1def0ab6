#pragma once

#include <pthread.h>

#include <atomic>

namespace android {

/**
 * Marks the calling thread as inside an output callback. The exported functions that wait for the
 * mixing cycle check isActive() and refuse instead of waiting for themselves.
 *
 * A pthread key, not a thread_local: the first use of a thread_local in a loaded library may
 * allocate and take the loader's lock, and the mixer thread must do neither.
 */
class CallbackScope {
public:
    /** Keeps the key while the library is loaded; without one nothing is marked. */
    class Key {
    public:
        Key();
        ~Key();
        Key(const Key&) = delete;
        Key& operator=(const Key&) = delete;
    };

    CallbackScope();
    ~CallbackScope();
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    static bool isActive();

private:
    static pthread_key_t sKey;
    static std::atomic<bool> sHasKey;  // release: sKey first
};

}  // namespace android
