#pragma once

namespace android {

/**
 * Ctrl-C and SIGTERM as something to look at, so that a command ends in order. Another one, a
 * second or two later, ends the program at once.
 */
class Interrupt {
public:
    static void install();
    /** The signal that came, or 0. */
    static int signalNumber();
};

}  // namespace android
