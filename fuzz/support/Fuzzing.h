#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "android/log.h"

/** Ends the run if the condition, true for every input, is false; the fuzzer keeps the input. */
#define FUZZ_EXPECT(condition)                                                      \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                \
        }                                                                           \
    } while (false)

/** Hides the library's messages: every input makes some, and they would drown the fuzzer's. */
[[maybe_unused]] const bool kLogIsSilent = [] {
    __android_log_set_logger([](const __android_log_message*) {});
    return true;
}();
