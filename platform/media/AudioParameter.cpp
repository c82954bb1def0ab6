#include "media/AudioParameter.h"

#include <charconv>
#include <string_view>

namespace android {

AudioParameter::AudioParameter(const String8& keyValuePairs) : mPairs(keyValuePairs.c_str()) {}

status_t AudioParameter::getInt(const String8& key, int& value) const {
    status_t status = BAD_VALUE;
    std::string_view rest(mPairs);
    while (!rest.empty()) {
        const std::string_view pair = rest.substr(0, rest.find(';'));
        rest.remove_prefix(pair.size() < rest.size() ? pair.size() + 1 : rest.size());
        const size_t equals = pair.find('=');
        if (equals == std::string_view::npos || pair.substr(0, equals) != key.c_str()) {
            continue;
        }
        std::string_view text = pair.substr(equals + 1);
        if (text.starts_with('+') && !text.starts_with("+-")) {
            text.remove_prefix(1);
        }
        int parsed = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
        const bool whole = error == std::errc() && end == text.data() + text.size();
        status = whole ? OK : BAD_VALUE;
        if (whole) {
            value = parsed;
        }
    }
    return status;
}

}  // namespace android
