#pragma once

#include <string>
#include <vector>

namespace android {

/** The names that setLogLevel() knows, from everything to nothing. */
const std::vector<std::string>& logLevels();

/** Sends the library's messages from this level on to standard error, one line each. */
void setLogLevel(const std::string& level);

}  // namespace android
