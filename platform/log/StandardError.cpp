#include "StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace android {

namespace {

/** Keeps the signal of a broken pipe from the host while it lives. */
class NoBrokenPipe {
public:
    NoBrokenPipe() {
        sigemptyset(&mSignal);
        sigaddset(&mSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mSignal, &mFormerMask);
        // Without the host's own block none can have been pending.
        if (sigismember(&mFormerMask, SIGPIPE) == 1) {
            sigset_t pending;
            sigpending(&pending);
            mWasPending = sigismember(&pending, SIGPIPE) == 1;
        }
    }
    ~NoBrokenPipe() { pthread_sigmask(SIG_SETMASK, &mFormerMask, nullptr); }
    NoBrokenPipe(const NoBrokenPipe&) = delete;
    NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;

    /** Takes back the signal that this thread's write has raised. */
    void take() const {
        const timespec now = {};
        while (!mWasPending && sigtimedwait(&mSignal, nullptr, &now) < 0 && errno == EINTR) {
        }
    }

private:
    sigset_t mSignal;
    sigset_t mFormerMask;
    bool mWasPending = false;  // one of the host's
};

bool hasRoom() {
    pollfd ready = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&ready, 1, 0) > 0;
}

/**
 * To a pipe or a terminal, through a descriptor of its own that does not block. It is opened anew
 * for each line, which takes about 5 us. A descriptor that is kept would have to follow every
 * redirection; children would inherit it; the reader of a pipe would not see its end after the host
 * has closed it; and when the host closes all descriptors, its number becomes another file's.
 */
ssize_t writeWithoutWaiting(const char* text, size_t byteCount) {
    const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (own < 0 && !hasRoom()) {
        // Another user's terminal, no /proc, no free descriptor: looking first has to do. The write
        // then waits only if somebody else fills the pipe in between.
        errno = EAGAIN;
        return -1;
    }
    const NoBrokenPipe noBrokenPipe;
    const ssize_t written = write(own >= 0 ? own : STDERR_FILENO, text, byteCount);
    const int error = errno;
    if (written < 0 && error == EPIPE) {
        noBrokenPipe.take();
    }
    if (own >= 0) {
        close(own);
    }
    errno = error;
    return written;
}

}  // namespace

ssize_t writeToStandardError(const char* text, size_t byteCount) {
    struct stat file = {};
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY || fstat(STDERR_FILENO, &file) != 0) {
        // In a host without a standard error, 2 may be the reading end of a pipe of its own. The
        // descriptor refuses what a new one would write.
        errno = EBADF;
        return -1;
    }
    if (S_ISSOCK(file.st_mode)) {
        return send(STDERR_FILENO, text, byteCount, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (S_ISFIFO(file.st_mode) || S_ISCHR(file.st_mode)) {
        return writeWithoutWaiting(text, byteCount);
    }
    return write(STDERR_FILENO, text, byteCount);
}

}  // namespace android
