#include "interface/CallbackScope.h"

namespace android {

pthread_key_t CallbackScope::sKey;
std::atomic<bool> CallbackScope::sHasKey{false};

CallbackScope::Key::Key() {
    sHasKey.store(pthread_key_create(&sKey, nullptr) == 0, std::memory_order_release);
}

CallbackScope::Key::~Key() {
    if (sHasKey.exchange(false, std::memory_order_acq_rel)) {
        pthread_key_delete(sKey);
    }
}

CallbackScope::CallbackScope() {
    if (sHasKey.load(std::memory_order_acquire)) {
        pthread_setspecific(sKey, this);
    }
}

CallbackScope::~CallbackScope() {
    if (sHasKey.load(std::memory_order_acquire)) {
        pthread_setspecific(sKey, nullptr);
    }
}

bool CallbackScope::isActive() {
    return sHasKey.load(std::memory_order_acquire) && pthread_getspecific(sKey) != nullptr;
}

}  // namespace android
