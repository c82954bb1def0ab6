#pragma once

#include <chrono>
#include <thread>

// Whether `condition` comes true in time.
template <typename Condition>
bool within(std::chrono::milliseconds limit, Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The same in a generous time.
template <typename Condition>
bool eventually(Condition condition) {
    return within(std::chrono::seconds(20), condition);
}
