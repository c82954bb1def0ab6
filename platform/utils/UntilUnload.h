#pragma once

namespace android {

namespace {

// One for each library. dlclose() calls this before it destroys static objects, exit() after that.
bool sIsUnloading = false;
[[gnu::destructor]] void noteUnload() {
    sIsUnloading = true;
}

}  // namespace

/**
 * The library's one T, made at its first use. It is freed when the library is unloaded. When the
 * process ends it stays, since threads that are still running may use it after exit() has begun.
 *
 * T has to be in an unnamed namespace: the variables below would otherwise be unique in the process,
 * and the loader keeps a library with such variables for good.
 * Threads: any.
 */
template <typename T>
T& untilUnload() {
    struct Release {
        ~Release() {
            if (sIsUnloading) {
                delete object;
            }
        }
        T* const object;
    };
    static T* const sObject = new T;
    static const Release sRelease{sObject};
    return *sObject;
}

}  // namespace android
