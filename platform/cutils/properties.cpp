#include "cutils/properties.h"

#include <errno.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "android/log.h"

namespace {

constexpr const char* kTag = "properties";

class PropertyStore {
public:
    PropertyStore() {
        const char* const path = getenv("STREAMPROXY_PROPERTIES");
        if (path != nullptr && *path != '\0') {
            load(path);
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

private:
    void load(const char* path) {
        std::ifstream file(path);
        if (!file) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, can't read %s: %s", __func__, path,
                                strerror(errno));
            return;
        }
        std::string line;
        for (int lineNumber = 1; std::getline(file, line); ++lineNumber) {
            const size_t end = line.find_last_not_of(" \t\r");
            line.resize(end == std::string::npos ? 0 : end + 1);
            if (line.empty() || line[0] == '#') {
                continue;
            }
            const size_t equals = line.find('=');
            if (equals == std::string::npos ||
                set(line.substr(0, equals), line.substr(equals + 1)) != 0) {
                __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, %s:%d is not key=value: %s",
                                    __func__, path, lineNumber, line.c_str());
            }
        }
    }

    std::mutex mLock;
    std::map<std::string, std::string, std::less<>> mValues;
};

PropertyStore& store() {
    static PropertyStore instance;
    return instance;
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
