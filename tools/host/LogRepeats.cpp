#include "tools/host/LogRepeats.h"

#include <android/log.h>

#include <algorithm>

namespace android {

namespace {

constexpr size_t kMaxLines = 32;
constexpr std::chrono::seconds kTellInterval{10};

void printLine(int priority, const std::string& tag, const std::string& text) {
    __android_log_message message{};
    message.struct_size = sizeof(message);
    message.priority = priority;
    message.tag = tag.c_str();
    message.message = text.c_str();
    __android_log_stderr_logger(&message);
}

}  // namespace

void LogRepeats::print(const __android_log_message& message) {
    const std::string tag = message.tag != nullptr ? message.tag : "";
    const auto now = Clock::now();
    const std::lock_guard lock(mLock);
    const auto found = std::find_if(mLines.begin(), mLines.end(), [&](const Line& line) {
        return line.priority == message.priority && line.tag == tag && line.text == message.message;
    });
    if (found != mLines.end()) {
        ++found->repeatCount;
        if (now - found->toldTime >= kTellInterval) {
            tell_l(*found);
        }
        return;
    }
    if (mLines.size() == kMaxLines) {
        tell_l(mLines.front());
        mLines.pop_front();
    }
    mLines.push_back(
        {.priority = message.priority, .tag = tag, .text = message.message, .toldTime = now});
    __android_log_stderr_logger(&message);
}

void LogRepeats::tell() {
    const std::lock_guard lock(mLock);
    for (Line& line : mLines) {
        tell_l(line);
    }
}

void LogRepeats::tell_l(Line& line) {
    if (line.repeatCount > 0) {
        const std::string count = std::to_string(line.repeatCount);
        printLine(
            line.priority, line.tag,
            line.text + " ... " + count + (line.repeatCount == 1 ? " time" : " times") + " more");
        line.repeatCount = 0;
        line.toldTime = Clock::now();
    }
}

}  // namespace android
