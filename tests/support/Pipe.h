#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

/** A descriptor to dump into, and what arrived there. */
class Pipe {
public:
    Pipe() {
        if (pipe2(mEnds, O_NONBLOCK) != 0) {
            mEnds[0] = mEnds[1] = -1;
        }
    }
    ~Pipe() {
        ::close(mEnds[0]);
        ::close(mEnds[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int writeEnd() const { return mEnds[1]; }
    std::string text() {
        char bytes[16384];
        const ssize_t count = ::read(mEnds[0], bytes, sizeof(bytes));
        return std::string(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    }

private:
    int mEnds[2];
};
