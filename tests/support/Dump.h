#pragma once

#include <cstdio>
#include <string>

/** What `dump` writes to the descriptor that it is given. */
template <typename Dump>
std::string textOf(Dump dump) {
    FILE* const file = std::tmpfile();
    dump(fileno(file));
    std::string text(16384, '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text;
}
