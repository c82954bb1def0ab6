#include "utils/RefBase.h"

namespace android {

void RefBase::incStrong(const void* /*id*/) const {
    // A new reference is always made from an existing one, so nothing needs to be ordered here.
    if (mStrong.fetch_add(1, std::memory_order_relaxed) != kNeverReferenced) {
        return;
    }
    mStrong.fetch_sub(kNeverReferenced, std::memory_order_relaxed);
    const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::decStrong(const void* id) const {
    // Release: this owner's writes come first. Acquire: the last owner sees them all.
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        const_cast<RefBase*>(this)->onLastStrongRef(id);
        delete this;
    }
}

int32_t RefBase::getStrongCount() const {
    return mStrong.load(std::memory_order_relaxed);
}

}  // namespace android
