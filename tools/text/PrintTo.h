#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace android {

/** As fmt::print(), but a failed write only sets the stream's error flag, as with printf(). */
template <typename... Args>
void printTo(FILE* stream, fmt::format_string<Args...> format, Args&&... arguments) {
    const std::string text = fmt::format(format, std::forward<Args>(arguments)...);
    fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace android
