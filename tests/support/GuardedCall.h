#pragma once

// The definitions that are made with this take the C library's place; its checking wrappers must not.
#undef _FORTIFY_SOURCE

#include <dlfcn.h>

#include "tests/support/AudioPathGuard.h"

/** The definition behind ours. */
template <typename Function>
inline Function* next(Function* /*ours*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define NEXT(name) static auto* const real = next(&(name), #name)

// Definitions that report, then do what the C library's do with the arguments behind `parameters`.
#define REPORT(report, result, name, parameters, ...) \
    result name parameters {                          \
        AudioPathGuard::report;                       \
        NEXT(name);                                   \
        return real(__VA_ARGS__);                     \
    }
