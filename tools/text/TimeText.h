#pragma once

#include <cstdint>
#include <string>

namespace android {

// Times as people write them: 250ms, 2.5s, seconds without a unit, 1:30 or 1:02:03.5. `where` names the
// option in the ToolError (usage) that is thrown for anything else.

/** 0 or more, up to about eleven days, in ns. */
int64_t parseTimeNs(const std::string& text, const std::string& where);
/** The same with a sign in front if wanted. */
int64_t parseSignedTimeNs(const std::string& text, const std::string& where);

/** A plain number. */
double parseNumber(const std::string& text, const std::string& where);

/** The two halves around a ':'. */
struct TimeSplit {
    std::string first;
    std::string second;
};
/**
 * A time, then a time or a word with a letter in front. Between two times of which one is as 1:30
 * the last ':' splits, so that 1:30:2 is two seconds at 1:30; the middle one where both are.
 */
TimeSplit splitAtColon(const std::string& text, const std::string& where,
                       const std::string& example);

}  // namespace android
