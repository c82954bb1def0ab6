#include "android/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr size_t kMessageByteCount = 1024;

void logToStandardError(const __android_log_message* message) {
    static constexpr char kLetters[] = "??VDIWEFS";
    const bool known = message->priority >= 0 && message->priority <= ANDROID_LOG_SILENT;
    fprintf(stderr, "%c %s: %s\n", known ? kLetters[message->priority] : '?',
            message->tag != nullptr ? message->tag : "", message->message);
}

std::atomic<__android_logger_function> gLogger{&logToStandardError};

}  // namespace

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
    gLogger.store(logger != nullptr ? logger : &logToStandardError, std::memory_order_release);
}
