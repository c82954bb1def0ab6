#pragma once

#include <cstdint>

/** The rest of a host's life once its streams have played. */
enum class HostEnd {
    DESTROY,  // everything, in a random order, and nothing is called afterwards
    EXIT,     // the process, while threads play; does not return
    FORK,     // the same, after a fork whose child's calls are refused
    UNLOAD,   // the library, with streams and a pipeline left
};

/** Lives a random host's life inside a run. Ends the process at a fault. */
void runHost(uint64_t seed, HostEnd end);
