#pragma once

#include <cstdint>
#include <string>

namespace android {

/** The property that sizes a stream's buffer, read by the library as it creates the stream. */
inline constexpr const char* kBufferFramesProperty = "persist.vendor.hwsync.fbuffer.size";

/** Throws ToolError naming a key or value that can't be set. */
void setProperty(const std::string& key, const std::string& value);

/** Sets every key=value line of a file; '#' starts a comment line. Throws ToolError. */
void loadProperties(const std::string& path);

/** Frames in a stream's buffer as the properties say now, by the library's own reading. */
int64_t bufferFramesProperty();

}  // namespace android
