#pragma once

#include <string>

namespace android {

// What goes into pages and pictures.

/** Any bytes as text of XML: markup is escaped, what is no valid UTF-8 becomes '?'. */
std::string markupText(const std::string& words);

/** A figure in the `printf` format of one double. */
std::string markupNumber(const char* format, double value);

}  // namespace android
