#pragma once

#include <cstddef>
#include <string>

#include "utils/Errors.h"

namespace android {

/** A text of 8-bit characters. */
class String8 {
public:
    String8() = default;
    /** A null text is empty. */
    explicit String8(const char* text) : mText(text != nullptr ? text : "") {}

    const char* c_str() const { return mText.c_str(); }
    size_t length() const { return mText.length(); }

    /** Appends printf-formatted text. 0, or BAD_VALUE when the format can't be printed. */
    status_t appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

    bool operator==(const String8& other) const { return mText == other.mText; }

private:
    std::string mText;
};

}  // namespace android
