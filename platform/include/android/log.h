/** The log, for C and C++: every message has a priority and a tag, and goes to one sink. Threads:
 *  any. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

typedef struct __android_log_message {
    size_t struct_size;  // of this record, for later fields
    uint32_t buffer_id;  // 0
    int32_t priority;    // android_LogPriority
    const char* tag;
    const char* file;  // null
    uint32_t line;     // 0
    const char* message;
} __android_log_message;

/** Receives each message on the thread that logs it; the record is valid during the call only. */
typedef void (*__android_logger_function)(const __android_log_message* message);

/** Formats into at most 1023 characters on the stack and hands the message to the sink. */
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/** Replaces the sink; null restores the default one, __android_log_stderr_logger. A message under way
 *  on another thread may still reach the former sink. */
void __android_log_set_logger(__android_logger_function logger);

/**
 * Writes the message to standard error as one line. Never waits for the reader: a line that a pipe or
 * terminal has no room for is dropped, and the next one that gets through follows a line that tells
 * how many were. Takes no lock; leaves errno alone; raises no SIGPIPE.
 */
void __android_log_stderr_logger(const __android_log_message* message);

#ifdef __cplusplus
}
#endif
