#include "tools/host/LogSink.h"

#include <android/log.h>

#include <algorithm>
#include <atomic>

namespace android {

namespace {

std::atomic<int> sMinPriority{ANDROID_LOG_WARN};
std::atomic<LogTap> sTap{nullptr};

void writeMessage(const __android_log_message* message) {
    const LogTap tap = sTap.load(std::memory_order_acquire);
    const bool isWanted = tap == nullptr || tap(message->tag, message->message);
    if (isWanted && message->priority >= sMinPriority.load(std::memory_order_relaxed)) {
        __android_log_stderr_logger(message);
    }
}

}  // namespace

const std::vector<std::string>& logLevels() {
    static const std::vector<std::string> sLevels = {"verbose", "debug", "info",
                                                     "warn",    "error", "silent"};
    return sLevels;
}

void setLogLevel(const std::string& level) {
    const auto& levels = logLevels();
    const auto found = std::find(levels.begin(), levels.end(), level) - levels.begin();
    const bool isSilent = level == "silent";
    sMinPriority = isSilent ? ANDROID_LOG_SILENT : ANDROID_LOG_VERBOSE + static_cast<int>(found);
    __android_log_set_logger(writeMessage);
}

void setLogTap(LogTap tap) {
    sTap.store(tap, std::memory_order_release);
}

}  // namespace android
