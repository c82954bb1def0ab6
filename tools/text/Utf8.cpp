#include "tools/text/Utf8.h"

#include <utf8.h>

namespace android {

size_t characterLength(const std::string& words, size_t index) {
    const auto begin = words.begin() + static_cast<std::string::difference_type>(index);
    auto end = begin;
    char32_t code = 0;
    try {
        code = utf8::next(end, words.end());
    } catch (const utf8::exception&) {
        return 0;
    }
    const bool isControl = code < ' ' || (code >= 0x7f && code < 0xa0);
    const bool isNoCharacter = (code & 0xfffe) == 0xfffe;
    return isControl || isNoCharacter ? 0 : static_cast<size_t>(end - begin);
}

std::string terminalText(const std::string& words) {
    std::string out;
    for (size_t index = 0; index < words.size();) {
        const size_t length = characterLength(words, index);
        out += length == 0 ? "?" : words.substr(index, length);
        index += length == 0 ? 1 : length;
    }
    return out;
}

}  // namespace android
