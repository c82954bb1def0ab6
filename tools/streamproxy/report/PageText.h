#pragma once

#include <string>

namespace android {

// Text of a report's page.

/** Any bytes as text of the page: markup is escaped, what is no valid UTF-8 becomes '?'. */
std::string pageText(const std::string& words);

/** A figure in the `printf` format of one double. */
std::string pageNumber(const char* format, double value);

}  // namespace android
