#pragma once

#include <cstddef>
#include <string>

namespace android {

/** Bytes of the valid UTF-8 character at `index` that people can be shown; 0: there is none. */
size_t characterLength(const std::string& words, size_t index);

/**
 * Any bytes, such as a file's name, for a terminal: control characters, which could rewrite what
 * it shows, and what is no valid UTF-8 become '?'.
 */
std::string terminalText(const std::string& words);

}  // namespace android
