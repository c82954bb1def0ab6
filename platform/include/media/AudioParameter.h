#pragma once

#include <string>

#include "utils/Errors.h"
#include "utils/String8.h"

namespace android {

/** Reads "key=value;key=value". Of a repeated key the last value holds. */
class AudioParameter {
public:
    explicit AudioParameter(const String8& keyValuePairs);

    /** 0; BAD_VALUE: the key is absent, or its whole value is not a decimal int. */
    status_t getInt(const String8& key, int& value) const;

private:
    std::string mPairs;
};

}  // namespace android
