#pragma once

#include <string>
#include <utility>
#include <vector>

namespace android {

/** What a report was made by: names such as "command", and their values. */
using RunOrigin = std::vector<std::pair<std::string, std::string>>;

}  // namespace android
