#pragma once

#include <cstdint>

namespace android {

/** What a kernel's vectors are made of. */
enum class InstructionSet : uint8_t {
    kBaseline,  // what every processor of the target has, 16-byte vectors: SSE2, NEON
    kAvx2,      // 32-byte vectors, on x86-64
};

/** The widest that this processor has. Cheap; any thread. Built with STREAMPROXY_BASELINE_ONLY, what
 *  every processor has: to measure it, or to tell a fault of one set from one of all. */
inline InstructionSet widestInstructionSet() {
#if defined(__x86_64__) && !defined(STREAMPROXY_BASELINE_ONLY)
    return __builtin_cpu_supports("avx2") ? InstructionSet::kAvx2 : InstructionSet::kBaseline;
#else
    return InstructionSet::kBaseline;
#endif
}

}  // namespace android
