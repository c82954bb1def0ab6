#pragma once

#include "android/log.h"

/** Hides the log while it lives: an idle stream warns every 10 ms. */
class QuietLog {
public:
    QuietLog() {
        __android_log_set_logger([](const __android_log_message*) {});
    }
    ~QuietLog() { __android_log_set_logger(nullptr); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};
