#pragma once

#include <cstdint>

#include "platform/virtualtime/VirtualRandom.h"

/** What every part of a simulated host knows of the run that it is in. */
namespace run {

using Random = android::VirtualRandom;

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNsPerSecond = 1'000'000'000;
/** The status of a process that found a fault. */
constexpr int kFaultStatus = 3;

/** Names the seed in messages. Before the run begins. */
void begin(uint64_t seed);
uint64_t seed();
/** The command that repeats the run. */
const char* repeatCommand();

/** Of the run's clock. Neither is a step: an oracle that looks does not change the schedule. */
int64_t nowNs();
/** The part of nowNs() in which nobody could go on: what a wait may be measured by, for steps, stalls
 *  and other threads' turns are not in it. */
int64_t idleNs();

void sleepFor(int64_t durationNs);

/** Prints what is wrong, with the seed, the time and the command that repeats it, and ends the
 *  process. */
[[noreturn, gnu::format(printf, 1, 2)]] void fault(const char* format, ...);

/** Prints what happens, with the time and the thread, where the environment variable
 *  STREAMPROXY_SIMULATE_TRACE is set. */
[[gnu::format(printf, 1, 2)]] void trace(const char* format, ...);

}  // namespace run
