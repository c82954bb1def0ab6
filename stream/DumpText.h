#pragma once

#include "utils/String8.h"

namespace android {

/**
 * Writes a dump to the host's descriptor, with one write. Nobody is told what became of it; a
 * reader that has gone raises no SIGPIPE, which would end the host.
 * Threads: any. Blocks as long as the descriptor does.
 */
void writeDumpText(int fd, const String8& text);

}  // namespace android
