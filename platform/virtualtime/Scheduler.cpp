#include "platform/virtualtime/Scheduler.h"

#include <execinfo.h>
#include <linux/futex.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/virtualtime/SystemCalls.h"

namespace android {

namespace {

using Outcome = VirtualThread::Outcome;
using State = VirtualThread::State;
using Wait = VirtualThread::Wait;

constexpr int64_t kFirstNs = 1'000'000'000'000;  // of the monotonic clock, as after some uptime
constexpr int kFrames = 48;

const char* nameOf(Wait wait) {
    switch (wait) {
        case Wait::NONE:
            return "is ready";
        case Wait::LOCK:
            return "waits for a lock";
        case Wait::CONDITION:
            return "waits for a condition";
        case Wait::FUTEX:
            return "waits on a futex";
        case Wait::SLEEP:
            return "sleeps";
        case Wait::JOIN:
            return "waits for a thread to end";
        case Wait::END:
            return "waits for all other threads to end";
    }
    return "";
}

bool isWaitingForLock(const VirtualThread& thread) {
    return thread.state == State::BLOCKED && thread.wait == Wait::LOCK;
}

}  // namespace

constinit thread_local VirtualThread* Scheduler::sSelf = nullptr;
Scheduler* Scheduler::sScheduler = nullptr;

Scheduler::Scheduler(const VirtualMachine::Config& config)
    : mConfig(config), mRandom(config.seed), mStartNs(kFirstNs), mNowNs(kFirstNs) {
    mChangePointCount = std::min<size_t>(config.changePointCount, kMaxChangePoints);
    for (size_t i = 0; i < mChangePointCount; ++i) {
        mChangePoints[i] = mRandom.below(config.changePointSpan);
    }
    void* frame = nullptr;
    backtrace(&frame, 1);  // loads what it needs while it may
    static const int sIsWatched = pthread_atfork(nullptr, nullptr, &Scheduler::loseOthers);
    (void)sIsWatched;
    sScheduler = this;
    sSelf = add(nullptr, nullptr);
    sSelf->handle = pthread_self();
}

Scheduler::~Scheduler() {
    sSelf = nullptr;
    sScheduler = nullptr;
}

VirtualMachine::Summary Scheduler::summary() const {
    return {.stepCount = mStepCount,
            .switchCount = mSwitchCount,
            .elapsedNs = mNowNs - mStartNs,
            .busyNs = mNowNs - mStartNs - mIdleNs,
            .hash = mHash};
}

VirtualThread* Scheduler::add(void* (*start)(void*), void* argument) {
    for (size_t i = 0; i < kMaxThreads; ++i) {
        VirtualThread& thread = mThreads[i];
        if (thread.state == State::FREE) {
            thread = VirtualThread();
            thread.number = mLastNumber++;
            thread.start = start;
            thread.argument = argument;
            thread.priority = UINT64_MAX / 2 + mRandom.below(UINT32_MAX);
            makeReady(thread, Outcome::WOKEN);
            mUsedSlots = std::max(mUsedSlots, i + 1);
            return &thread;
        }
    }
    return nullptr;
}

VirtualThread* Scheduler::find(pthread_t handle) {
    for (size_t i = 0; i < mUsedSlots; ++i) {
        if (mThreads[i].state != State::FREE && pthread_equal(mThreads[i].handle, handle) != 0) {
            return &mThreads[i];
        }
    }
    return nullptr;
}

int Scheduler::create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*),
                      void* argument) {
    VirtualThread* const thread = add(start, argument);
    if (thread == nullptr) {
        return EAGAIN;
    }
    if (attributes != nullptr) {
        int detachState = PTHREAD_CREATE_JOINABLE;
        pthread_attr_getdetachstate(attributes, &detachState);
        thread->isDetached = detachState == PTHREAD_CREATE_DETACHED;
    }
    const int error =
        system_call::pthread_create()(&thread->handle, attributes, &Scheduler::enter, thread);
    if (error != 0) {
        thread->state = State::FREE;
        return error;
    }
    *handle = thread->handle;
    step(0x71);
    return 0;
}

void* Scheduler::enter(void* argument) {
    auto* const thread = static_cast<VirtualThread*>(argument);
    // Leaves also when the thread ends by pthread_exit(), which unwinds the stack.
    struct Stay {
        ~Stay() { sScheduler->leave(); }
    };
    sSelf = thread;
    sScheduler->waitForTurn();
    const Stay stay;
    return thread->start(thread->argument);
}

void Scheduler::leave() {
    VirtualThread& self = *sSelf;
    self.state = self.isDetached ? State::FREE : State::ENDED;
    wake(Wait::JOIN, &self, INT32_MAX);
    wake(Wait::END, this, INT32_MAX);
    note(0x72);
    sSelf = nullptr;
    handOver(choose(nullptr));
}

int Scheduler::join(pthread_t handle, void** result) {
    VirtualThread* const thread = find(handle);
    if (thread == sSelf) {
        return EDEADLK;
    }
    if (thread != nullptr) {
        while (thread->state != State::ENDED) {
            block(Wait::JOIN, thread);
        }
        thread->state = State::FREE;
    }
    // It is past its last step, or was never of the run.
    const int error = system_call::pthread_join()(handle, result);
    step(0x73);
    return error;
}

int Scheduler::detach(pthread_t handle) {
    VirtualThread* const thread = find(handle);
    if (thread != nullptr) {
        thread->isDetached = true;
        if (thread->state == State::ENDED) {
            thread->state = State::FREE;
        }
    }
    return system_call::pthread_detach()(handle);
}

void Scheduler::waitForOthers() {
    const auto isAlive = [](const VirtualThread& thread) {
        return &thread != sSelf && (thread.state == State::READY || thread.state == State::BLOCKED);
    };
    while (std::any_of(mThreads, mThreads + mUsedSlots, isAlive)) {
        block(Wait::END, this);
    }
}

void Scheduler::note(uint32_t kind) {
    constexpr uint64_t kPrime = 0x100000001b3U;
    mHash = (mHash ^ (uint64_t{sSelf->number} << 32 | kind)) * kPrime;
    mHash = (mHash ^ static_cast<uint64_t>(mNowNs)) * kPrime;
    ++mStepCount;
}

void Scheduler::step(uint32_t kind) {
    note(kind);
    mOutsideWaits = 0;
    if (mConfig.maxStepCount != 0 && mStepCount > mConfig.maxStepCount) {
        reportStuck("too many steps");
    }
    if (mConfig.maxStepCostNs > 0) {
        mNowNs +=
            static_cast<int64_t>(mRandom.below(static_cast<uint64_t>(mConfig.maxStepCostNs) + 1));
    }
    if (mRandom.happens(mConfig.stallRate)) {
        mNowNs += static_cast<int64_t>(mRandom.below(static_cast<uint64_t>(mConfig.maxStallNs)));
    }
    wakeSpuriously();
    wakeDue();
    VirtualThread* const next = choose(sSelf);
    if (next != sSelf) {
        handOver(next);
        waitForTurn();
    }
}

int64_t Scheduler::readClock() {
    mNowNs += mConfig.clockReadNs;
    step(0x75);
    return mNowNs;
}

void Scheduler::yield() {
    note(0x74);
    wakeDue();
    VirtualThread* next = nullptr;
    for (size_t i = 0; i < mUsedSlots; ++i) {
        VirtualThread& thread = mThreads[i];
        if (&thread != sSelf && thread.state == State::READY &&
            (next == nullptr || thread.readySince < next->readySince)) {
            next = &thread;
        }
    }
    if (next != nullptr) {
        sSelf->readySince = ++mReadyCount;
        handOver(next);
        waitForTurn();
    } else {
        mNowNs += 1000;  // or a loop of yields would stop the clock
    }
}

VirtualThread::Outcome Scheduler::block(Wait wait, const void* object, int64_t deadlineNs) {
    VirtualThread& self = *sSelf;
    note(0x60 + static_cast<uint32_t>(wait));
    self.state = State::BLOCKED;
    self.wait = wait;
    self.object = object;
    self.deadlineNs = deadlineNs == kForever ? kForever : deadlineNs + lateness();
    mNextDeadlineNs = std::min(mNextDeadlineNs, self.deadlineNs);
    wakeDue();
    VirtualThread* const next = choose(nullptr);
    if (next != &self) {
        handOver(next);
        waitForTurn();
    }
    return self.outcome;
}

int64_t Scheduler::lateness() {
    return mConfig.maxOversleepNs > 0
               ? static_cast<int64_t>(mRandom.below(static_cast<uint64_t>(mConfig.maxOversleepNs)))
               : 0;
}

int Scheduler::wake(Wait wait, const void* object, int count) {
    int woken = 0;
    while (woken < count) {
        VirtualThread* waiting[kMaxThreads];
        size_t waitingCount = 0;
        for (size_t i = 0; i < mUsedSlots; ++i) {
            VirtualThread& thread = mThreads[i];
            if (thread.state == State::BLOCKED && thread.wait == wait && thread.object == object) {
                waiting[waitingCount++] = &thread;
            }
        }
        if (waitingCount == 0) {
            break;
        }
        const bool isFree = mConfig.order != VirtualMachine::Order::UNTIL_BLOCKED;
        makeReady(*waiting[isFree ? mRandom.below(waitingCount) : 0], Outcome::WOKEN);
        ++woken;
    }
    return woken;
}

void Scheduler::makeReady(VirtualThread& thread, Outcome outcome) {
    thread.state = State::READY;
    thread.wait = Wait::NONE;
    thread.outcome = outcome;
    thread.readySince = ++mReadyCount;
}

void Scheduler::wakeDue() {
    if (mNowNs < mNextDeadlineNs) {
        return;
    }
    mNextDeadlineNs = kForever;
    for (size_t i = 0; i < mUsedSlots; ++i) {
        VirtualThread& thread = mThreads[i];
        if (thread.state != State::BLOCKED) {
            continue;
        }
        if (thread.deadlineNs <= mNowNs) {
            makeReady(thread, Outcome::TIMED_OUT);
        } else {
            mNextDeadlineNs = std::min(mNextDeadlineNs, thread.deadlineNs);
        }
    }
}

void Scheduler::wakeSpuriously() {
    if (!mRandom.happens(mConfig.spuriousRate)) {
        return;
    }
    VirtualThread& thread = mThreads[mRandom.below(mUsedSlots)];
    if (thread.state == State::BLOCKED &&
        (thread.wait == Wait::CONDITION || thread.wait == Wait::FUTEX)) {
        makeReady(thread, Outcome::SPURIOUS);
    }
}

VirtualThread* Scheduler::choose(VirtualThread* running) {
    for (;;) {
        VirtualThread* const next = chooseReady(running);
        if (next != nullptr) {
            return next;
        }
        if (mNextDeadlineNs != kForever) {
            mIdleNs += std::max<int64_t>(mNextDeadlineNs - mNowNs, 0);
            mNowNs = std::max(mNowNs, mNextDeadlineNs);
            wakeDue();
            continue;
        }
        // A lock may be held outside the run, by a thread that is just ending: look again.
        constexpr uint32_t kPatience = 200;
        const bool mayEnd = std::any_of(mThreads, mThreads + mUsedSlots, isWaitingForLock);
        if (!mayEnd || ++mOutsideWaits > kPatience) {
            reportStuck("nothing can go on");
        }
        for (size_t i = 0; i < mUsedSlots; ++i) {
            if (isWaitingForLock(mThreads[i])) {
                makeReady(mThreads[i], Outcome::SPURIOUS);
            }
        }
        const timespec patience = {.tv_sec = 0, .tv_nsec = 1'000'000};
        system_call::nanosleep()(&patience, nullptr);
        return chooseReady(nullptr);
    }
}

VirtualThread* Scheduler::chooseReady(VirtualThread* running) {
    VirtualThread* ready[kMaxThreads];
    size_t readyCount = 0;
    for (size_t i = 0; i < mUsedSlots; ++i) {
        if (mThreads[i].state == State::READY) {
            ready[readyCount++] = &mThreads[i];
        }
    }
    if (readyCount == 0) {
        return nullptr;
    }
    mStepsInARow = running != nullptr ? mStepsInARow + 1 : 0;
    const bool isHogging = mStepsInARow > kLongRun;
    const auto longest = [&] {
        return *std::min_element(ready, ready + readyCount,
                                 [](const VirtualThread* a, const VirtualThread* b) {
                                     return a->readySince < b->readySince;
                                 });
    };
    if (isHogging) {
        // It may be waiting in a loop for what another one does.
        mStepsInARow = 0;
        running->readySince = ++mReadyCount;
        running->priority = --mLowestPriority;
        return longest();
    }
    switch (mConfig.order) {
        case VirtualMachine::Order::UNTIL_BLOCKED:
            return running != nullptr ? running : longest();
        case VirtualMachine::Order::UNIFORM:
            return ready[mRandom.below(readyCount)];
        case VirtualMachine::Order::PRIORITIES:
            if (running != nullptr &&
                std::count(mChangePoints, mChangePoints + mChangePointCount, mStepCount) != 0) {
                running->priority = --mLowestPriority;
            }
            return *std::max_element(ready, ready + readyCount,
                                     [](const VirtualThread* a, const VirtualThread* b) {
                                         return a->priority < b->priority;
                                     });
    }
    return nullptr;
}

void Scheduler::handOver(VirtualThread* next) {
    ++mSwitchCount;
    __atomic_store_n(&next->turn, 1, __ATOMIC_RELEASE);
    system_call::syscall()(SYS_futex, &next->turn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Scheduler::waitForTurn() {
    VirtualThread& self = *sSelf;
    for (;;) {
        while (__atomic_load_n(&self.turn, __ATOMIC_ACQUIRE) == 0) {
            system_call::syscall()(SYS_futex, &self.turn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr,
                                   0);
        }
        __atomic_store_n(&self.turn, 0, __ATOMIC_RELAXED);
        if (mReporter == nullptr) {
            return;
        }
        printPlace();
        handOver(mReporter);
    }
}

void Scheduler::printPlace() {
    char name[16] = "?";
    pthread_getname_np(pthread_self(), name, sizeof(name));
    fprintf(stderr, "thread %u, %s, %s", sSelf->number, name, nameOf(sSelf->wait));
    if (sSelf->state == State::BLOCKED && sSelf->deadlineNs != kForever) {
        fprintf(stderr, " until %.6f s", static_cast<double>(sSelf->deadlineNs - mStartNs) / 1e9);
    }
    fprintf(stderr, ", at\n");
    fflush(stderr);
    void* frames[kFrames];
    backtrace_symbols_fd(frames, backtrace(frames, kFrames), STDERR_FILENO);
}

void Scheduler::reportStuck(const char* reason) {
    // Whoever finds it may have left the run already.
    VirtualThread reporter;
    if (sSelf == nullptr) {
        sSelf = &reporter;
    }
    VirtualThread* const self = sSelf;
    fprintf(stderr, "virtual machine: %s after %.6f s and %llu steps\n", reason,
            static_cast<double>(mNowNs - mStartNs) / 1e9,
            static_cast<unsigned long long>(mStepCount));
    mReporter = self;
    for (size_t i = 0; i < mUsedSlots; ++i) {
        VirtualThread& thread = mThreads[i];
        if (thread.state != State::READY && thread.state != State::BLOCKED) {
            continue;
        }
        if (&thread == self) {
            printPlace();
            continue;
        }
        handOver(&thread);
        while (__atomic_load_n(&self->turn, __ATOMIC_ACQUIRE) == 0) {
            system_call::syscall()(SYS_futex, &self->turn, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr,
                                   0);
        }
        __atomic_store_n(&self->turn, 0, __ATOMIC_RELAXED);
    }
    if (!mConfig.repeatCommand.empty()) {
        fprintf(stderr, "repeat: %s\n", mConfig.repeatCommand.c_str());
    }
    fflush(stderr);
    abort();
}

// Only the thread that forked exists in the new process.
void Scheduler::loseOthers() {
    if (sSelf == nullptr) {
        return;
    }
    for (VirtualThread& thread : sScheduler->mThreads) {
        if (&thread != sSelf) {
            thread.state = State::FREE;
        }
    }
}

}  // namespace android
