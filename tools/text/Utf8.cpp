#include "tools/text/Utf8.h"

#include <cstdint>

namespace android {

size_t characterLength(const std::string& words, size_t index) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(words[i]); };
    const unsigned char lead = byteAt(index);
    if (lead < 0x80) {
        return lead >= ' ' && lead != 0x7f ? 1 : 0;
    }
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || index + length > words.size()) {
        return 0;
    }
    uint32_t code = lead & (0x7fu >> length);
    for (size_t i = index + 1; i < index + length; ++i) {
        if ((byteAt(i) & 0xc0) != 0x80) {
            return 0;
        }
        code = code << 6 | (byteAt(i) & 0x3fu);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xd800 && code < 0xe000;
    const bool isNoCharacter = (code & 0xfffeu) == 0xfffeu || code < 0xa0 || code > 0x10ffff;
    return code >= kLeast[length] && !isSurrogate && !isNoCharacter ? length : 0;
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
