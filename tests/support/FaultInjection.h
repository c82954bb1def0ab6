#pragma once

/**
 * Lets allocations and the start of threads fail. Allocations are counted while a Window is open,
 * on every thread: those of the tests themselves stay outside.
 *
 * Without a sanitizer malloc(), calloc() and realloc() count, and with them operator new, and what
 * is allocated and not given back can be asked for. A sanitizer has definitions of its own: there
 * operator new alone fails, threads don't, and the leaks are the sanitizer's to find.
 */
class FaultInjection {
public:
    /** The allocations to fail from here on: the `nth` one, and those behind it if `all`. */
    static void failAllocation(long nth, bool all);
    static void failNothing();
    /** Whether one failed since. */
    static bool hasFailed();

    class Window {
    public:
        Window();
        ~Window();
        Window(const Window&) = delete;
        Window& operator=(const Window&) = delete;
    };

    static void refuseThreads(bool refuse);
    /** Allocations that nobody has given back. */
    static long liveAllocations();
};
