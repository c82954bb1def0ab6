#pragma once

/** Each program defines this: main() calls it once, then runs what it registered. */
void registerBenchmarks();
