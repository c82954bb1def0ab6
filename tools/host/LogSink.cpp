#include "tools/host/LogSink.h"

#include <android/log.h>

#include <algorithm>
#include <atomic>

#include "tools/host/LogRepeats.h"

namespace android {

namespace {

std::atomic<int> sMinPriority{ANDROID_LOG_WARN};
std::atomic<LogTap> sTap{nullptr};

/** Never destroyed: a thread of the library may log until the process ends. */
LogRepeats& repeats() {
    static auto* const sRepeats = new LogRepeats;
    return *sRepeats;
}

void writeMessage(const __android_log_message* message) {
    const LogTap tap = sTap.load(std::memory_order_acquire);
    const bool isWanted = tap == nullptr || tap(message->tag, message->message);
    const int minPriority = sMinPriority.load(std::memory_order_relaxed);
    if (!isWanted || message->priority < minPriority) {
        return;
    }
    // Whoever asks for debug messages follows the order of events.
    if (minPriority > ANDROID_LOG_DEBUG) {
        repeats().print(*message);
    } else {
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

void tellLogRepeats() {
    repeats().tell();
}

void setLogTap(LogTap tap) {
    sTap.store(tap, std::memory_order_release);
}

}  // namespace android
