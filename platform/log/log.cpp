#include "android/log.h"

#include <limits.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "StandardError.h"

namespace {

constexpr size_t kMessageByteCount = 1024;
// The longest that a pipe takes whole.
constexpr size_t kMaxWriteByteCount = PIPE_BUF;

// Lines that standard error has not taken, to be told with the next one. They order nothing.
std::atomic<unsigned> gDroppedCount{0};
std::atomic<bool> gIsLineCut{false};  // the last of them in part: a line break is missing

std::atomic<__android_logger_function> gLogger{&__android_log_stderr_logger};

char letterOf(int priority) {
    constexpr char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority <= ANDROID_LOG_SILENT ? kLetters[priority] : '?';
}

/** The bytes written of what has room for `byteCount` and its NUL. */
size_t fitting(int formatted, size_t byteCount) {
    return std::min(static_cast<size_t>(std::max(formatted, 0)), byteCount - 1);
}

}  // namespace

void __android_log_stderr_logger(const __android_log_message* message) {
    const int formerError = errno;
    char text[kMaxWriteByteCount];
    // The account of dropped lines goes with this one in one write: nothing comes between them.
    const unsigned dropped = gDroppedCount.exchange(0, std::memory_order_relaxed);
    const bool isAfterCut = dropped > 0 && gIsLineCut.exchange(false, std::memory_order_relaxed);
    size_t accountByteCount = 0;
    if (dropped > 0) {
        accountByteCount = fitting(
            snprintf(text, sizeof(text),
                     "%sW log: lines dropped because standard error did not take them: %u\n",
                     isAfterCut ? "\n" : "", dropped),
            sizeof(text));
    }
    const size_t room = sizeof(text) - accountByteCount;
    const size_t byteCount =
        accountByteCount +
        fitting(snprintf(text + accountByteCount, room, "%c %s: %s\n", letterOf(message->priority),
                         message->tag != nullptr ? message->tag : "", message->message),
                room);
    text[byteCount - 1] = '\n';

    const ssize_t written = android::writeToStandardError(text, byteCount);
    const size_t taken = static_cast<size_t>(std::max<ssize_t>(written, 0));
    if (taken < byteCount) {
        if (isAfterCut || taken > 0) {
            gIsLineCut.store(true, std::memory_order_relaxed);
        }
        gDroppedCount.fetch_add(taken < accountByteCount ? dropped + 1 : 1,
                                std::memory_order_relaxed);
    }
    errno = formerError;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[kMessageByteCount];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const __android_log_message message = {
        .struct_size = sizeof(message),
        .buffer_id = 0,
        .priority = priority,
        .tag = tag,
        .file = nullptr,
        .line = 0,
        .message = text,
    };
    gLogger.load(std::memory_order_acquire)(&message);
    return length;
}

void __android_log_set_logger(__android_logger_function logger) {
    gLogger.store(logger != nullptr ? logger : &__android_log_stderr_logger,
                  std::memory_order_release);
}
