#pragma once

#ifdef STREAMPROXY_CHECK_LOCK_ORDER
#include "utils/LockOrder.h"
#endif

namespace android {

/** A lock's name in the lock order; null: it may be taken at any time. Empty in builds that do not
 *  check. */
class LockPlace {
public:
#ifdef STREAMPROXY_CHECK_LOCK_ORDER
    constexpr explicit LockPlace(const char* name) : mName(name) {}
    void take() const {
        if (mName != nullptr) {
            LockOrder::take(mName, this);
        }
    }
    void release() const {
        if (mName != nullptr) {
            LockOrder::release(this);
        }
    }

private:
    const char* mName;
#else
    constexpr explicit LockPlace(const char* /*name*/) {}
    void take() const {}
    void release() const {}
#endif
};

}  // namespace android
