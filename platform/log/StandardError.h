#pragma once

#include <sys/types.h>

#include <cstddef>

namespace android {

/**
 * Writes whole lines to standard error, whatever that is at the moment, and never waits for its
 * reader: a mixer that logs must go on when a terminal is stopped or a pipe is full. The flags of the
 * host's own descriptor stay as they are, and a reader that has gone raises no SIGPIPE.
 *
 * Takes no lock and allocates nothing. Threads: any, also after exit() has begun.
 *
 * The bytes written; fewer than `byteCount`: the reader has no room for more; -1: none, see errno. A
 * pipe takes up to PIPE_BUF bytes whole or not at all.
 */
ssize_t writeToStandardError(const char* text, size_t byteCount);

}  // namespace android
