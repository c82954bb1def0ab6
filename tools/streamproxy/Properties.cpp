#include "tools/streamproxy/Properties.h"

#include <cutils/properties.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tools/streamproxy/ToolError.h"

namespace android {

namespace {

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r";
    const size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos
               ? std::string()
               : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

}  // namespace

void setProperty(const std::string& key, const std::string& value) {
    if (property_set(key.c_str(), value.c_str()) != 0) {
        throw ToolError("property '" + key + "' can't be set to '" + value +
                        "'; values have at most " + std::to_string(PROPERTY_VALUE_MAX - 1) +
                        " characters");
    }
}

void loadProperties(const std::string& path) {
    std::ifstream file(path);
    int lineNumber = 0;
    std::string line;
    while (std::getline(file, line)) {
        ++lineNumber;
        line = trimmed(line);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw ToolError(
                path + ", line " + std::to_string(lineNumber) + ": '" + line + "' is no key=value",
                EXIT_USAGE);
        }
        setProperty(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
    }
    if (!file.eof()) {
        throw ToolError(path + ": can't be read: " + strerror(errno) + "; check --properties");
    }
}

int64_t bufferFramesProperty() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kBufferFramesProperty, value, "2000");
    return std::strtol(value, nullptr, 10);
}

}  // namespace android
