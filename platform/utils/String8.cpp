#include "utils/String8.h"

#include <cstdarg>
#include <cstdio>

namespace android {

status_t String8::appendFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (length > 0) {
        const size_t start = mText.size();
        // One more for the NUL that vsnprintf writes behind the text.
        mText.resize(start + static_cast<size_t>(length) + 1);
        vsnprintf(&mText[start], static_cast<size_t>(length) + 1, format, again);
        mText.pop_back();
    }
    va_end(again);
    return length < 0 ? BAD_VALUE : OK;
}

}  // namespace android
