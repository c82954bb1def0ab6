#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "android/log.h"
#include "tests/support/AudioPathGuard.h"

/** Takes the log while it lives, as "E tag: text". One at a time. Threads: any may log. */
class LogCapture {
public:
    LogCapture() {
        const std::lock_guard<std::mutex> lock(sLock);
        sMessages.clear();
        __android_log_set_logger(&LogCapture::take);
    }
    ~LogCapture() { __android_log_set_logger(&LogCapture::print); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> messages() const {
        const std::lock_guard<std::mutex> lock(sLock);
        return sMessages;
    }
    size_t count(const std::string& message) const {
        const std::lock_guard<std::mutex> lock(sLock);
        return static_cast<size_t>(std::count(sMessages.begin(), sMessages.end(), message));
    }

private:
    static void take(const __android_log_message* message) {
        const AudioPathGuard::HostCode host;
        const std::lock_guard<std::mutex> lock(sLock);
        sMessages.push_back(std::string(1, "??VDIWE"[message->priority]) + " " + message->tag +
                            ": " + message->message);
    }

    /** What is logged while nobody takes the log. The file that it goes to is not the library's. */
    static void print(const __android_log_message* message) {
        const AudioPathGuard::HostCode host;
        __android_log_stderr_logger(message);
    }

    static inline const bool sIsPrinting = [] {
        __android_log_set_logger(&LogCapture::print);
        return true;
    }();
    static inline std::mutex sLock;
    static inline std::vector<std::string> sMessages;
};
