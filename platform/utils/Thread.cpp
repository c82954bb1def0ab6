#include "utils/Thread.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

namespace android {

Thread::Thread(bool /*canCallJava*/) {}

Thread::~Thread() {
    // A started thread holds a reference, so only the thread itself gets here unjoined.
    if (mState == State::kStarted) {
        pthread_detach(mThread);
    }
    pthread_cond_destroy(&mJoined);
    pthread_mutex_destroy(&mLock);
}

status_t Thread::run(const char* name, int32_t priority, size_t stackByteCount) {
    pthread_mutex_lock(&mLock);
    if (mState != State::kIdle) {
        pthread_mutex_unlock(&mLock);
        return INVALID_OPERATION;
    }
    strncpy(mName, name != nullptr ? name : "", sizeof(mName) - 1);
    mPriority = priority;
    mExitPending.store(false);
    mHoldSelf = this;

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    int error = 0;
    if (stackByteCount != 0) {
        error = pthread_attr_setstacksize(&attributes, stackByteCount);
    }
    if (error == 0) {
        error = pthread_create(&mThread, &attributes, &Thread::enter, this);
    }
    pthread_attr_destroy(&attributes);
    mState = error == 0 ? State::kStarted : State::kIdle;
    pthread_mutex_unlock(&mLock);
    if (error != 0) {
        mHoldSelf.clear();
    }
    return -error;
}

void* Thread::enter(void* self) {
    Thread* const thread = static_cast<Thread*>(self);
    // run() holds the lock until mThread is valid; the loop may ask for it at once.
    pthread_mutex_lock(&thread->mLock);
    const sp<Thread> strong(std::move(thread->mHoldSelf));
    pthread_mutex_unlock(&thread->mLock);
    thread->runLoop();
    return nullptr;
}

void Thread::runLoop() {
    pthread_setname_np(pthread_self(), mName);
    if (mPriority != 0) {
        // Refused to ordinary users; the thread then works as well as the machine is idle.
        (void)setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), mPriority);
    }
    if (readyToRun() != OK) {
        return;
    }
    while (!exitPending() && threadLoop()) {
    }
}

void Thread::requestExit() {
    mExitPending.store(true);
}

status_t Thread::readyToRun() {
    return OK;
}

status_t Thread::requestExitAndWait() {
    requestExit();
    pthread_mutex_lock(&mLock);
    if (mState != State::kIdle && pthread_equal(mThread, pthread_self()) != 0) {
        pthread_mutex_unlock(&mLock);
        return WOULD_BLOCK;
    }
    if (mState == State::kStarted) {
        mState = State::kJoining;
        pthread_mutex_unlock(&mLock);
        pthread_join(mThread, nullptr);
        pthread_mutex_lock(&mLock);
        mState = State::kIdle;
        pthread_cond_broadcast(&mJoined);
    }
    while (mState == State::kJoining) {
        pthread_cond_wait(&mJoined, &mLock);
    }
    pthread_mutex_unlock(&mLock);
    return OK;
}

bool Thread::exitPending() const {
    return mExitPending.load();
}

}  // namespace android
