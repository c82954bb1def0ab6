#include "stream/DumpText.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace android {

namespace {

/** Takes back the SIGPIPE that this thread's write has raised. */
void takeBrokenPipe(const sigset_t& brokenPipe) {
    const timespec now = {};
    while (sigtimedwait(&brokenPipe, nullptr, &now) < 0 && errno == EINTR) {
    }
}

}  // namespace

void writeDumpText(int fd, const String8& text) {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    sigset_t formerMask;
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &formerMask);
    ssize_t written = 0;
    do {
        written = ::write(fd, text.c_str(), text.length());
    } while (written < 0 && errno == EINTR);
    // One that was pending before is somebody else's.
    if (written < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        takeBrokenPipe(brokenPipe);
    }
    pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
}

}  // namespace android
