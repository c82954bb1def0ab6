#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "platform/virtualtime/VirtualRandom.h"
#include "platform/virtualtime/VirtualThread.h"
#include "virtualtime/VirtualMachine.h"

namespace android {

/**
 * The threads of a run, its clock, and the choice of who is next. Exactly one of the threads runs:
 * whoever runs may touch everything here, and hands its turn on in step() and block().
 *
 * Compiled without a sanitizer, so that handing a turn on orders nothing in a sanitizer's eyes: a
 * data race is still one although the threads take turns.
 */
class Scheduler {
public:
    static constexpr int64_t kForever = INT64_MAX;

    /** Of the calling thread; null outside a run. */
    static Scheduler* current() { return sSelf != nullptr ? sScheduler : nullptr; }

    explicit Scheduler(const VirtualMachine::Config& config);
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    VirtualMachine::Summary summary() const;

    /** A point where another thread may run instead. `kind` tells steps apart in the hash. */
    void step(uint32_t kind);
    /** Reads the monotonic clock, in ns. */
    int64_t readClock();
    /** Lets another ready thread run, if there is one. */
    void yield();
    /** Waits for a wake() of this object, or until the deadline. */
    VirtualThread::Outcome block(VirtualThread::Wait wait, const void* object,
                                 int64_t deadlineNs = kForever);
    /** Ends up to `count` waits for this object; how many. */
    int wake(VirtualThread::Wait wait, const void* object, int count);

    /** As the C library's functions. */
    int create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*),
               void* argument);
    int join(pthread_t handle, void** result);
    int detach(pthread_t handle);

    /** Waits until all other threads have ended. */
    void waitForOthers();

private:
    static constexpr size_t kMaxThreads = 512;
    static constexpr uint32_t kLongRun = 100'000;  // steps in a row that nobody else had a turn

    static void* enter(void* thread);
    static void loseOthers();  // in a forked process

    VirtualThread* add(void* (*start)(void*), void* argument);
    VirtualThread* find(pthread_t handle);
    void makeReady(VirtualThread& thread, VirtualThread::Outcome outcome);
    void wakeDue();
    void wakeSpuriously();
    VirtualThread* choose(VirtualThread* running);
    VirtualThread* chooseReady(VirtualThread* running);
    void handOver(VirtualThread* next);
    void waitForTurn();
    void leave();
    int64_t lateness();
    void note(uint32_t kind);
    [[noreturn]] void reportStuck(const char* reason);
    void printPlace();

    static constinit thread_local VirtualThread* sSelf;
    static Scheduler* sScheduler;  // of the run in progress

    const VirtualMachine::Config& mConfig;
    VirtualRandom mRandom;
    const int64_t mStartNs;
    int64_t mNowNs;
    int64_t mIdleNs = 0;                 // passed while nobody could go on
    int64_t mNextDeadlineNs = kForever;  // no thread's is earlier
    uint64_t mStepCount = 0;
    uint64_t mSwitchCount = 0;
    uint64_t mHash = 0xcbf29ce484222325U;
    uint64_t mReadyCount = 0;
    uint64_t mLowestPriority = UINT64_MAX / 2;
    uint32_t mStepsInARow = 0;
    uint32_t mOutsideWaits = 0;
    uint32_t mLastNumber = 0;
    size_t mUsedSlots = 0;  // of mThreads, from the start
    static constexpr size_t kMaxChangePoints = 64;
    uint64_t mChangePoints[kMaxChangePoints] = {};
    size_t mChangePointCount = 0;
    VirtualThread* mReporter = nullptr;
    VirtualThread mThreads[kMaxThreads];
};

}  // namespace android
