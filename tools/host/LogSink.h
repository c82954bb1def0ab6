#pragma once

#include <string>
#include <vector>

namespace android {

/** The names that setLogLevel() knows, from everything to nothing. */
const std::vector<std::string>& logLevels();

/** Sends the library's messages from this level on to standard error, one line each. Equal lines are
 *  printed once and counted, but for levels "verbose" and "debug". */
void setLogLevel(const std::string& level);

/** Prints the counts of equal lines that are not told yet; for the end of a run. */
void tellLogRepeats();

/** Hears every message, whatever its level, on the thread that logs it; false keeps it from being
 *  printed. Null: nobody listens. Needs setLogLevel() to have been called. */
using LogTap = bool (*)(const char* tag, const char* text);
void setLogTap(LogTap tap);

}  // namespace android
