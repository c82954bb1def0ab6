#pragma once

#include <chrono>

#include "virtualtime/VirtualMachine.h"

/**
 * For tests that run in virtual time. There waiting takes time, and a step some ns: what waits for
 * nothing takes less than this, however busy the machine is.
 */
inline constexpr std::chrono::microseconds kNoWait{100};

/** The virtual time that `call` takes. */
template <typename Call>
std::chrono::nanoseconds timeOf(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::steady_clock::now() - start;
}
