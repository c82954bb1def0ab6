#pragma once

#include <stdexcept>
#include <string>

namespace android {

/** What the program answers to its caller. */
enum ExitCode {
    EXIT_OK = 0,
    EXIT_RUNTIME = 1,        // a file, the library or the disk failed
    EXIT_USAGE = 2,          // the command line is wrong; nothing was touched
    EXIT_BUSY_MACHINE = 3,   // done, but the figures are the machine's
    EXIT_BEYOND_LIMIT = 4,   // done, and what was measured is beyond what was asked for
    EXIT_INTERRUPTED = 130,  // Ctrl-C; the output is valid up to there
    EXIT_TERMINATED = 143,   // SIGTERM; likewise
};

/** Ends the command: the text names the file or option, what is wrong and what to do. */
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& text, ExitCode exitCode = EXIT_RUNTIME)
        : std::runtime_error(text), mExitCode(exitCode) {}
    ExitCode exitCode() const { return mExitCode; }

private:
    ExitCode mExitCode;
};

}  // namespace android
