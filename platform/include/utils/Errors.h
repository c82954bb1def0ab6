#pragma once

#include <errno.h>
#include <stdint.h>

namespace android {

/** 0 for success, otherwise a negative errno value. */
typedef int32_t status_t;

enum {
    OK = 0,
    NO_ERROR = 0,
    NO_MEMORY = -ENOMEM,
    INVALID_OPERATION = -ENOSYS,
    BAD_VALUE = -EINVAL,
    WOULD_BLOCK = -EWOULDBLOCK,
};

}  // namespace android
