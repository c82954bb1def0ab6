#include "tools/host/Properties.h"

#include <cutils/properties.h>
#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "tools/process/ToolError.h"

namespace android {

namespace {

ToolError unsettable(const std::string& key, const std::string& value) {
    return ToolError(
        fmt::format("property '{}' can't be set to '{}'; values have at most {} characters", key,
                    value, PROPERTY_VALUE_MAX - 1));
}

}  // namespace

void setProperty(const std::string& key, const std::string& value) {
    if (property_set(key.c_str(), value.c_str()) != 0) {
        throw unsettable(key, value);
    }
}

void loadProperties(const std::string& path) {
    struct Load {
        const std::string& path;
        std::optional<ToolError> firstError;
    };
    Load load{path, std::nullopt};
    const auto note = [](const property_bad_line* line, void* cookie) {
        auto& [file, error] = *static_cast<Load*>(cookie);
        if (!error) {
            error = line->key != nullptr
                        ? unsettable(line->key, line->value)
                        : ToolError(fmt::format("{}, line {}: '{}' is not key=value", file,
                                                line->number, line->text),
                                    EXIT_USAGE);
        }
    };
    const int status = property_load(path.c_str(), note, &load);
    if (load.firstError) {
        throw ToolError(*load.firstError);
    }
    if (status != 0) {
        throw ToolError(path + ": can't be read: " + strerror(-status) + "; check --properties");
    }
}

int64_t bufferFramesProperty() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kBufferFramesProperty, value, "2000");
    return std::strtol(value, nullptr, 10);
}

}  // namespace android
