#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

/** Ends the soak at once and names the fault. */
[[noreturn, gnu::format(printf, 1, 2)]] inline void soakFail(const char* format, ...) {
    fprintf(stderr, "\nsoak: ");
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fprintf(stderr, "\n");
    abort();
}

/** Where frames went, in streams whose every frame is followed. */
struct SoakLedger {
    std::atomic<uint64_t> accepted{0};
    std::atomic<uint64_t> delivered{0};  // to the outputs
    std::atomic<uint64_t> discarded{0};  // by cycles that another stream cut short
    std::atomic<uint64_t> flushed{0};    // by flush and close
    std::atomic<uint64_t> dropped{0};    // by AV sync
    std::atomic<uint64_t> held{0};       // still in the ring when the stream ended
    std::atomic<uint64_t> converted{0};  // out of streams that change rate or channels
    std::atomic<uint64_t> cycles{0};
    std::atomic<uint64_t> streams{0};
    std::atomic<uint64_t> steps{0};  // of all actors; the watchdog's pulse
};
