#pragma once

#include <cstdlib>
#include <cstring>

#include "processor/InstructionSet.h"

/** STREAMPROXY_BENCH_SET=baseline measures what processors without AVX2 run. */
inline bool isBaselineWanted() {
    const char* const wanted = getenv("STREAMPROXY_BENCH_SET");
    return wanted != nullptr && strcmp(wanted, "baseline") == 0;
}

inline android::InstructionSet kernelSet() {
    return isBaselineWanted() ? android::InstructionSet::kBaseline
                              : android::widestInstructionSet();
}
