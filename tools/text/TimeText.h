#pragma once

#include <cstdint>
#include <string>

namespace android {

// Times as people write them: 250ms, 2.5s, or seconds without a unit. `where` names the option in
// the ToolError (usage) that is thrown for anything else.

/** 0 or more, up to about eleven days, in ns. */
int64_t parseTimeNs(const std::string& text, const std::string& where);
/** The same with a sign in front if wanted. */
int64_t parseSignedTimeNs(const std::string& text, const std::string& where);

/** A plain number. */
double parseNumber(const std::string& text, const std::string& where);

/** The two halves around the first ':'. */
struct TimeSplit {
    std::string first;
    std::string second;
};
TimeSplit splitAtColon(const std::string& text, const std::string& where,
                       const std::string& example);

}  // namespace android
