#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace android {

/**
 * The bytes of standard input, which can be looked at before they are read. A call waits for
 * whoever sends them, but not beyond cancel(), Ctrl-C or SIGTERM.
 * Threads: one at a time, cancel() apart.
 */
class StandardInput {
public:
    /** Throws ToolError for a terminal; `example` is a command that writes into the pipe. */
    explicit StandardInput(const char* example);

    /** The next bytes, fewer than asked at the end only; they are still to be read. */
    const std::vector<uint8_t>& peek(size_t byteCount);
    /** Fills `data`; fewer bytes than asked at the end only. Throws ToolError. */
    size_t read(void* data, size_t byteCount);
    struct CloseStream {
        void operator()(FILE* stream) const { fclose(stream); }
    };
    using Stream = std::unique_ptr<FILE, CloseStream>;
    /** All that is to be read, in a temporary file without a name, at its start. Throws ToolError. */
    Stream keep();
    /** From any thread. */
    void cancel() { mIsCancelled.store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return mIsCancelled.load(std::memory_order_relaxed); }

private:
    size_t receive(uint8_t* data, size_t byteCount);
    bool waitForBytes() const;

    std::atomic<bool> mIsCancelled{false};
    bool mIsOver = false;
    std::vector<uint8_t> mPeeked;  // received, and not read yet
};

}  // namespace android
