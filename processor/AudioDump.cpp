#include "processor/AudioDump.h"

#include <cstring>

namespace android {

AudioDump::AudioDump(const char* directory, const char* name, const char* property) {
    if (directory == nullptr || name == nullptr || property == nullptr) {
        return;
    }
    const size_t directoryLength = strlen(directory);
    const size_t nameLength = strlen(name);
    const size_t propertyLength = strlen(property);
    if (directoryLength + nameLength >= kTextByteCount || propertyLength >= kTextByteCount) {
        return;
    }
    memcpy(mProperty, property, propertyLength);
    memcpy(mPath, directory, directoryLength);
    memcpy(mPath + directoryLength, name, nameLength);
    mValid = true;
}

}  // namespace android
