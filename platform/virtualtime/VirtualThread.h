#pragma once

#include <pthread.h>

#include <cstdint>

namespace android {

/** One thread of a run. Only the thread that runs changes any, but for the word of its turn. */
struct VirtualThread {
    enum class State : uint8_t {
        FREE,     // nobody's
        READY,    // can go on
        BLOCKED,  // waits
        ENDED,    // has left the run; somebody may join it
    };
    enum class Wait : uint8_t { NONE, LOCK, CONDITION, FUTEX, SLEEP, JOIN, END };
    enum class Outcome : uint8_t { WOKEN, TIMED_OUT, SPURIOUS };

    State state = State::FREE;
    Wait wait = Wait::NONE;
    Outcome outcome = Outcome::WOKEN;
    bool isDetached = false;
    uint32_t turn = 0;             // a futex: 1 when the thread may run
    uint32_t number = 0;           // in the order started
    const void* object = nullptr;  // that it waits for
    int64_t deadlineNs = 0;
    uint64_t readySince = 0;  // a count of everything that became ready
    uint64_t priority = 0;
    pthread_t handle = {};
    void* (*start)(void*) = nullptr;
    void* argument = nullptr;
};

}  // namespace android
