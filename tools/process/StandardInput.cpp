#include "tools/process/StandardInput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr int kFd = STDIN_FILENO;
constexpr size_t kChunkBytes = size_t{1} << 16;
constexpr int kPollMs = 50;  // how late an end is noticed while nothing comes

}  // namespace

StandardInput::StandardInput(const char* example) {
    if (isatty(kFd) != 0) {
        throw ToolError(
            std::string("-: standard input is a terminal; pipe into it, such as with ") + example);
    }
}

const std::vector<uint8_t>& StandardInput::peek(size_t byteCount) {
    const size_t former = mPeeked.size();
    if (byteCount > former) {
        mPeeked.resize(byteCount);
        mPeeked.resize(former + receive(mPeeked.data() + former, byteCount - former));
    }
    return mPeeked;
}

size_t StandardInput::read(void* data, size_t byteCount) {
    auto* bytes = static_cast<uint8_t*>(data);
    const size_t peeked = std::min(byteCount, mPeeked.size());
    std::copy_n(mPeeked.begin(), peeked, bytes);
    mPeeked.erase(mPeeked.begin(), mPeeked.begin() + static_cast<std::ptrdiff_t>(peeked));
    return peeked + receive(bytes + peeked, byteCount - peeked);
}

StandardInput::Stream StandardInput::keep() {
    Stream kept(tmpfile());
    std::vector<uint8_t> chunk(kChunkBytes);
    size_t byteCount = 1;
    while (kept && byteCount > 0) {
        byteCount = read(chunk.data(), chunk.size());
        if (fwrite(chunk.data(), 1, byteCount, kept.get()) != byteCount) {
            kept.reset();
        }
    }
    if (!kept || fflush(kept.get()) != 0) {
        throw ToolError(std::string("-: can't be kept in a temporary file: ") + strerror(errno) +
                        "; make room, or name a file instead");
    }
    rewind(kept.get());
    return kept;
}

size_t StandardInput::receive(uint8_t* data, size_t byteCount) {
    size_t done = 0;
    while (!mIsOver && done < byteCount && waitForBytes()) {
        const ssize_t got = ::read(kFd, data + done, byteCount - done);
        if (got < 0 && errno != EINTR && errno != EAGAIN) {
            throw ToolError(std::string("-: standard input can't be read: ") + strerror(errno) +
                            "; pipe into it");
        }
        mIsOver = got == 0;
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return done;
}

bool StandardInput::waitForBytes() const {
    while (!mIsCancelled.load(std::memory_order_relaxed) && Interrupt::signalNumber() == 0) {
        pollfd waited{.fd = kFd, .events = POLLIN, .revents = 0};
        if (poll(&waited, 1, kPollMs) > 0) {
            return true;
        }
    }
    return false;
}

}  // namespace android
