#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <string>

struct __android_log_message;

namespace android {

/**
 * Prints a line of the log once and counts it from then on, since what is wrong in one block is
 * mostly wrong in all. The count follows every ten seconds, and at the end.
 * Threads: any; the lock is held for the time of a print.
 */
class LogRepeats {
public:
    void print(const __android_log_message& message);
    /** The counts that are not told yet. */
    void tell();

private:
    using Clock = std::chrono::steady_clock;

    struct Line {
        int priority;
        std::string tag;
        std::string text;
        int64_t repeatCount = 0;  // not told yet
        Clock::time_point toldTime{};
    };

    static void tell_l(Line& line);

    std::mutex mLock;
    std::deque<Line> mLines;  // under mLock; the latest that differ
};

}  // namespace android
