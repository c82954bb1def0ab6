#pragma once

/**
 * Watches the mixer's thread in a program that has AudioPathGuard.cpp's definitions of malloc() and
 * the like. From the thread's start to its end the library must not allocate there, give back
 * memory, or touch a file; inside a GuardedMixer's cycle it must not wait for a lock either, except
 * for those on the mixer's list. What breaks this aborts the process. Without those definitions
 * nothing is watched.
 */
class AudioPathGuard {
public:
    /** The locks for which a cycle may wait. */
    class WaitList {
    public:
        virtual bool mayWaitFor(const void* mutex) const = 0;

    protected:
        ~WaitList() = default;
    };

    /** The calling thread is inside a cycle. */
    class Cycle {
    public:
        explicit Cycle(const WaitList& waits) { tWaits = &waits; }
        ~Cycle() { tWaits = nullptr; }
        Cycle(const Cycle&) = delete;
        Cycle& operator=(const Cycle&) = delete;
    };

    /** What runs here is the host's, and may do as it likes. */
    class HostCode {
    public:
        HostCode() { ++tHostDepth; }
        ~HostCode() { --tHostDepth; }
        HostCode(const HostCode&) = delete;
        HostCode& operator=(const HostCode&) = delete;
    };

    /** Whether the calling thread is the mixer's. */
    static void watch(bool isMixer) { tIsMixer = isMixer; }

    /** Gets what was done instead of the abort; null restores that. */
    static inline void (*sReport)(const char* what) = nullptr;

    static void forbid(const char* what) {
        if (tIsMixer && tHostDepth == 0) {
            report(what);
        }
    }
    static void forbidWait(const char* what, const void* mutex) {
        const WaitList* const waits = tWaits;
        if (waits != nullptr && tHostDepth == 0 &&
            (mutex == nullptr || !waits->mayWaitFor(mutex))) {
            report(what);
        }
    }

private:
    static void report(const char* what);

    static inline constinit thread_local bool tIsMixer = false;
    static inline constinit thread_local int tHostDepth = 0;
    static inline constinit thread_local const WaitList* tWaits = nullptr;  // in a cycle
};
