#pragma once

#include <string>

namespace android {

/** The command line as a shell would take it, each word quoted where it must be. */
inline std::string shellText(int argc, char** argv) {
    constexpr const char* kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=.,:/@%^";
    std::string text;
    for (int i = 0; i < argc; ++i) {
        const std::string word = i == 0 ? "streamproxy" : argv[i];
        text += i == 0 ? "" : " ";
        if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
            text += word;
            continue;
        }
        text += '\'';
        for (const char letter : word) {
            text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
        }
        text += '\'';
    }
    return text;
}

}  // namespace android
