#include "tools/text/MarkupText.h"

#include "tools/text/Utf8.h"

namespace android {

std::string markupText(const std::string& words) {
    std::string out;
    for (size_t index = 0; index < words.size();) {
        const size_t length = characterLength(words, index);
        switch (length == 0 ? '?' : words[index]) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += length == 0 ? "?" : words.substr(index, length);
        }
        index += length == 0 ? 1 : length;
    }
    return out;
}

}  // namespace android
