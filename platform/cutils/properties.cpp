#include "cutils/properties.h"

#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "../utils/UntilUnload.h"
#include "android/log.h"

namespace {

constexpr const char* kTag = "properties";

using BadLine = void (*)(const property_bad_line* line, void* cookie);

/** The whole file; 0 or a negative errno value. */
int readFile(const char* path, std::string& content) {
    const auto closeFile = [](FILE* file) { fclose(file); };
    const std::unique_ptr<FILE, decltype(closeFile)> file(fopen(path, "re"), closeFile);
    if (file == nullptr) {
        return -errno;
    }
    char bytes[4096];
    while (const size_t count = fread(bytes, 1, sizeof(bytes), file.get())) {
        content.append(bytes, count);
    }
    return ferror(file.get()) != 0 ? -errno : 0;
}

std::string_view trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

class PropertyStore {
public:
    PropertyStore() {
        const char* const path = getenv("STREAMPROXY_PROPERTIES");
        if (path == nullptr || *path == '\0') {
            return;
        }
        const auto log = [](const property_bad_line* line, void* cookie) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "load, %s:%d %s: %s",
                                static_cast<const char*>(cookie), line->number,
                                line->key == nullptr ? "is not key=value" : "has too long a value",
                                line->text);
        };
        const int status = load(path, log, const_cast<char*>(path));
        if (status != 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "load, can't read %s: %s", path,
                                strerror(-status));
        }
    }

    /** Copies the value, cut to what a property holds; its length, 0 where there is none. */
    size_t get(std::string_view key, char* value) {
        const std::lock_guard<std::mutex> lock(mLock);
        const auto found = mValues.find(key);
        return found != mValues.end() && !found->second.empty() ? copyValue(found->second, value)
                                                                : 0;
    }

    static size_t copyValue(std::string_view text, char* value) {
        const size_t length = std::min<size_t>(text.size(), PROPERTY_VALUE_MAX - 1);
        memmove(value, text.data(), length);  // the default may be the target itself
        value[length] = '\0';
        return length;
    }

    int set(const std::string& key, const std::string& value) {
        if (key.empty() || value.size() >= PROPERTY_VALUE_MAX) {
            return -EINVAL;
        }
        const std::lock_guard<std::mutex> lock(mLock);
        mValues[key] = value;
        return 0;
    }

    int load(const char* path, BadLine badLine, void* cookie) {
        std::string content;
        const int status = readFile(path, content);
        if (status != 0) {
            return status;
        }
        std::string_view rest = content;
        for (int number = 1; !rest.empty(); ++number) {
            const size_t end = std::min(rest.find('\n'), rest.size());
            loadLine(number, std::string(trimmed(rest.substr(0, end))), badLine, cookie);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return 0;
    }

private:
    void loadLine(int number, const std::string& text, BadLine badLine, void* cookie) {
        if (text.empty() || text[0] == '#') {
            return;
        }
        const size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0) {
            const property_bad_line line = {number, text.c_str(), nullptr, nullptr};
            badLine(&line, cookie);
            return;
        }
        const std::string key(trimmed(std::string_view(text).substr(0, equals)));
        const std::string value(trimmed(std::string_view(text).substr(equals + 1)));
        if (set(key, value) != 0) {
            const property_bad_line line = {number, text.c_str(), key.c_str(), value.c_str()};
            badLine(&line, cookie);
        }
    }

    std::mutex mLock;
    std::map<std::string, std::string, std::less<>> mValues;
};

PropertyStore& store() {
    return android::untilUnload<PropertyStore>();
}

}  // namespace

int property_get(const char* key, char* value, const char* defaultValue) {
    size_t length = 0;
    try {
        length = key != nullptr ? store().get(key, value) : 0;
    } catch (const std::bad_alloc&) {
        // The first caller makes the store. Without memory for it nothing is set yet.
    }
    if (length == 0) {
        const char* const text = defaultValue != nullptr ? defaultValue : "";
        length = PropertyStore::copyValue({text, strnlen(text, PROPERTY_VALUE_MAX - 1)}, value);
    }
    return static_cast<int>(length);
}

int property_set(const char* key, const char* value) try {
    return key != nullptr ? store().set(key, value != nullptr ? value : "") : -EINVAL;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int property_load(const char* path, BadLine badLine, void* cookie) try {
    return store().load(path, badLine, cookie);
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}
