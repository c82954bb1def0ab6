#include "fuzz/simulate/Run.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "virtualtime/VirtualMachine.h"

namespace run {

namespace {

uint64_t gSeed = 0;
std::string gRepeatCommand;

}  // namespace

void begin(uint64_t seed) {
    gSeed = seed;
    gRepeatCommand = "./dev simulate 1 " + std::to_string(seed);
}

uint64_t seed() {
    return gSeed;
}

const char* repeatCommand() {
    return gRepeatCommand.c_str();
}

int64_t nowNs() {
    return android::VirtualMachine::progress().elapsedNs;
}

int64_t idleNs() {
    const auto summary = android::VirtualMachine::progress();
    return summary.elapsedNs - summary.busyNs;
}

void sleepFor(int64_t durationNs) {
    const timespec duration = {.tv_sec = durationNs / kNsPerSecond,
                               .tv_nsec = durationNs % kNsPerSecond};
    nanosleep(&duration, nullptr);
}

void fault(const char* format, ...) {
    fprintf(stderr, "\nsimulate: seed %" PRIu64 ", at %.6f s: ", gSeed,
            static_cast<double>(nowNs()) / 1e9);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fprintf(stderr, "\nrepeat: %s\n", repeatCommand());
    fflush(stderr);
    _exit(kFaultStatus);
}

void trace(const char* format, ...) {
    static const bool sIsTraced = getenv("STREAMPROXY_SIMULATE_TRACE") != nullptr;
    if (!sIsTraced) {
        return;
    }
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof(name));
    fprintf(stderr, "%.6f %s ", static_cast<double>(nowNs()) / 1e9, name);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fprintf(stderr, "\n");
}

}  // namespace run
