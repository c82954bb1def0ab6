#pragma once

#include <csignal>

#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

/** What a command answers that did what it could until now. */
inline ExitCode exitCodeNow() {
    const int signalNumber = Interrupt::signalNumber();
    return signalNumber == 0        ? EXIT_OK
           : signalNumber == SIGINT ? EXIT_INTERRUPTED
                                    : EXIT_TERMINATED;
}

}  // namespace android
