#include "hwsync/HwSyncBound.h"

#include <cstdlib>

#include "cutils/properties.h"

namespace android {

void HwSyncBound::read(const char* property, unsigned long& valueMs) {
    char text[PROPERTY_VALUE_MAX] = {};
    if (property_get(property, text, nullptr) >= 1) {
        // Truncated to an int and sign-extended, whatever the text holds.
        valueMs = static_cast<unsigned long>(static_cast<int>(strtol(text, nullptr, 10)));
    }
}

unsigned long HwSyncBound::valueMs() const {
    unsigned long now = defaultMs;
    read(property, now);
    return now;
}

}  // namespace android
