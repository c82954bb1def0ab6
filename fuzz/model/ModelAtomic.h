#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "fuzz/model/Explorer.h"

/** Replaces std::atomic: every use is a step of the latest explorer. */
template <typename T>
class ModelAtomic {
public:
    ModelAtomic(T value) : mPlace(Explorer::sCurrent->addLocation(value)) {}
    ModelAtomic(const ModelAtomic&) = delete;
    ModelAtomic& operator=(const ModelAtomic&) = delete;

    T load(std::memory_order order) const { return take(Explorer::Kind::kLoad, 0, order); }
    void store(T value, std::memory_order order) { take(Explorer::Kind::kStore, value, order); }
    T fetch_or(T value, std::memory_order order) { return take(Explorer::Kind::kOr, value, order); }
    T fetch_and(T value, std::memory_order order) {
        return take(Explorer::Kind::kAnd, value, order);
    }

    /** The two futex calls. */
    int sleep(T expected) { return static_cast<int>(take(Explorer::Kind::kSleep, expected)); }
    int wake() { return static_cast<int>(take(Explorer::Kind::kWake, 0)); }

private:
    T take(Explorer::Kind kind, T value,
           std::memory_order order = std::memory_order_relaxed) const {
        return static_cast<T>(Explorer::sCurrent->step({kind, mPlace, value, order}));
    }

    const size_t mPlace;
};
