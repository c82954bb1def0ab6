#pragma once

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "utils/Errors.h"
#include "utils/RefBase.h"

namespace android {

/**
 * A thread with a loop. run() starts it; it calls threadLoop() until that returns false or an exit
 * is requested, and holds a reference to this object meanwhile.
 */
class Thread : virtual public RefBase {
public:
    explicit Thread(bool canCallJava = true);
    ~Thread() override;

    /**
     * Starts the thread. `name` is cut to what the system shows (15 characters). `priority` is a
     * nice value; where the process may not set it, the thread runs at the priority it inherits.
     * `stackByteCount` 0 asks for the default.
     * 0; INVALID_OPERATION: already started; another negative errno value: no thread was made.
     */
    virtual status_t run(const char* name, int32_t priority = 0, size_t stackByteCount = 0);

    /** Asks the loop to end after its current pass; does not wait. */
    virtual void requestExit();

    /** Runs once on the new thread, before the loop; anything but 0 ends the thread. */
    virtual status_t readyToRun();

    /**
     * Asks the loop to end and waits until the thread is gone, its reference to this object too.
     * WOULD_BLOCK on the thread itself, otherwise 0.
     */
    status_t requestExitAndWait();

protected:
    bool exitPending() const;

private:
    /** One pass of the work; false ends the thread. */
    virtual bool threadLoop() = 0;

    static void* enter(void* self);
    void runLoop();

    enum class State { kIdle, kStarted, kJoining };

    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;  // guards mState and mThread
    pthread_cond_t mJoined = PTHREAD_COND_INITIALIZER;  // mState left kJoining
    State mState = State::kIdle;
    pthread_t mThread = {};
    char mName[16] = {};    // written before the thread starts
    int32_t mPriority = 0;  // written before the thread starts
    sp<Thread> mHoldSelf;   // handed to the new thread
    std::atomic<bool> mExitPending{false};
};

}  // namespace android
