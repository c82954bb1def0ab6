#pragma once

#include <stdint.h>

#include <atomic>
#include <utility>

namespace android {

/**
 * Base of reference-counted objects: the object deletes itself when the last sp<> goes.
 * An object that no sp<> ever held belongs to whoever made it.
 * Threads: references may be taken and dropped on any thread; the deletion sees every write that
 * was made through a reference dropped before.
 */
class RefBase {
public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

protected:
    RefBase() = default;
    virtual ~RefBase() = default;

    /** Runs once, inside the first incStrong(), on the thread that made it. */
    virtual void onFirstRef() {}
    virtual void onLastStrongRef(const void* /*id*/) {}
    virtual bool onIncStrongAttempted(uint32_t /*flags*/, const void* /*id*/) { return false; }
    virtual void onLastWeakRef(const void* /*id*/) {}

private:
    // Far above any real count, so that the first reference is told from a later one.
    static constexpr int32_t kNeverReferenced = 1 << 28;

    mutable std::atomic<int32_t> mStrong{kNeverReferenced};
};

/** A strong reference; null when empty. One sp<> is used by one thread at a time. */
template <typename T>
class sp {
public:
    sp() = default;
    sp(std::nullptr_t) {}         // NOLINT(google-explicit-constructor)
    sp(T* other) : mPtr(other) {  // NOLINT(google-explicit-constructor)
        if (mPtr != nullptr) {
            mPtr->incStrong(this);
        }
    }
    sp(const sp& other) : sp(other.mPtr) {}
    sp(sp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    template <typename U>
    sp(const sp<U>& other) : sp(other.get()) {}  // NOLINT(google-explicit-constructor)
    ~sp() { clear(); }

    sp& operator=(const sp& other) {
        sp(other).swap(*this);
        return *this;
    }
    sp& operator=(sp&& other) noexcept {
        sp(std::move(other)).swap(*this);
        return *this;
    }

    void clear() {
        T* const old = std::exchange(mPtr, nullptr);
        if (old != nullptr) {
            old->decStrong(this);
        }
    }
    void swap(sp& other) noexcept { std::swap(mPtr, other.mPtr); }

    T& operator*() const { return *mPtr; }
    T* operator->() const { return mPtr; }
    T* get() const { return mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }

private:
    T* mPtr = nullptr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}

}  // namespace android
