#pragma once

#include <string>

namespace android {

// What goes into pages and pictures.

/** Any bytes as text of XML: markup is escaped, what is no valid UTF-8 becomes '?'. */
std::string markupText(const std::string& words);

}  // namespace android
