#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "android/log.h"

/** Ends the run where what holds for every input does not; the fuzzer keeps the input. */
#define FUZZ_EXPECT(condition)                                                      \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                \
        }                                                                           \
    } while (false)

/** The library's messages are part of every input's work, and would drown the fuzzer's. */
[[maybe_unused]] const bool kLogIsSilent = [] {
    __android_log_set_logger([](const __android_log_message*) {});
    return true;
}();
