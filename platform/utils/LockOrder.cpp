#include "utils/LockOrder.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace android {

namespace {

// The order of all named locks, outer first: under one that is held, only those below may be taken.
constexpr const char* kOrder[] = {
    "global",         // held by a call until the pipeline has its change
    "lists",          // of control threads, while one changes them
    "worker turn",    // waits for the worker's lock
    "worker",         // held for a cycle, in which every stream is asked and every output called;
                      // a callback may use streams, so all that is theirs comes behind
    "mix",            // its configuration as control threads know it
    "command queue",  // filled by any thread, emptied by the worker where it gets it at once
    "lifecycle",      // of a tunnel stream: opening and closing wait for its parser
    "parser turn",    // waits for the parser's lock
    "parser",         // held while callbacks write into the stream: before all that a stream takes
    "play state",     // a write from a callback may open the stream again
    "parameters",     // a new bridge is told the latency
    "latency",        // told to the streams by the worker, and to their bridges
    "bridge",         // the pointer alone
    "close",          // a close against a write that opens the stream
    "chain",          // held for a pull, down to the last stage
    "config",         // the chain as control threads know it
    "pipeline slot",  // the pointer alone
};
constexpr size_t kLockCount = sizeof(kOrder) / sizeof(kOrder[0]);

struct Held {
    size_t place;
    const void* lock;
};

// Each place is held at most once, so there is room for all.
constinit thread_local Held tHeld[kLockCount] = {};
constinit thread_local size_t tHeldCount = 0;

/** The index in tHeld; tHeldCount: this thread does not hold it. */
size_t indexOf(const void* lock) {
    size_t i = 0;
    while (i < tHeldCount && tHeld[i].lock != lock) {
        ++i;
    }
    return i;
}

size_t placeOf(const char* name) {
    for (size_t place = 0; place < kLockCount; ++place) {
        if (strcmp(kOrder[place], name) == 0) {
            return place;
        }
    }
    fprintf(stderr, "lock order: \"%s\" has no place in it\n", name);
    abort();
}

}  // namespace

void LockOrder::take(const char* name, const void* lock) {
    const size_t place = placeOf(name);
    for (size_t i = 0; i < tHeldCount; ++i) {
        if (tHeld[i].place >= place) {
            fprintf(stderr, "lock order: \"%s\" is taken while \"%s\" is held\n", name,
                    kOrder[tHeld[i].place]);
            abort();
        }
    }
    tHeld[tHeldCount++] = {place, lock};
}

void LockOrder::release(const void* lock) {
    const size_t i = indexOf(lock);
    if (i == tHeldCount) {
        fprintf(stderr, "lock order: a lock is released by a thread that does not hold it\n");
        abort();
    }
    // Not always the one taken last.
    --tHeldCount;
    memmove(tHeld + i, tHeld + i + 1, (tHeldCount - i) * sizeof(Held));
}

void LockOrder::assertHeld(const char* name, const void* lock) {
    if (indexOf(lock) == tHeldCount) {
        fprintf(stderr, "lock order: \"%s\" is not held where it must be\n", name);
        abort();
    }
}

}  // namespace android
