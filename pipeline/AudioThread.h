#pragma once

#include <cstdint>

#include "pipeline/AudioOutput.h"
#include "pipeline/ListHandover.h"
#include "stream/AudioStream.h"
#include "sync/ThreadLock.h"
#include "sync/WakeFlag.h"
#include "utils/Mutex.h"
#include "utils/RefBase.h"
#include "utils/String8.h"
#include "utils/Thread.h"
#include "utils/Vector.h"

namespace android {

/**
 * A worker with a list of streams, a list of outputs and a queue of commands. On each pass it
 * handles the commands, runs one cycle if there is a stream and an output, and sleeps if the cycle
 * produced nothing. The first strong reference starts it.
 *
 * Control threads change their own lists and hand the worker a copy, which it takes over between
 * two cycles. While it runs, they take its lock only to change the mixing configuration, when
 * nothing is mixed: so a preempted control thread holds nothing that the worker waits for.
 *
 * Lock order of the whole library: platform/utils/LockOrder.cpp.
 * Threads: any may call; exit() not the worker.
 */
class AudioThread : public Thread {
public:
    /** Only CONFIG_LATENCY_OFFSET does anything. The others just wake the worker: their change is
     *  made before they are sent. */
    enum CommandCode {
        CONFIG_EXIT = 0,
        CONFIG_ADD_STREAM = 1,
        CONFIG_REMOVE_STREAM = 2,
        CONFIG_REGISTER_OUTPUT = 3,
        CONFIG_UNREGISTER_OUTPUT = 4,
        CONFIG_LATENCY_OFFSET = 5,  // mArg1: ms
    };

    class Command : public RefBase {
    public:
        int mCode = -1;
        int mArg1 = -1;
        int mArg2 = -1;
    };

    explicit AudioThread(const String8& name);
    ~AudioThread() override;

    bool threadLoop() override;
    void onFirstRef() override;
    /** Whether the worker started: 0, or a negative errno value. */
    [[nodiscard]] status_t startStatus() const { return mStartStatus; }

    /** Stops the worker after its cycle and waits for it; not if it has stopped. 0. */
    virtual int exit() EXCLUDES(mLock, mCommandLock);
    /** As exit(), but waits `limitNs` at most; false: the worker will stop after its cycle. */
    [[nodiscard]] bool exitWithin(int64_t limitNs) EXCLUDES(mLock, mCommandLock);

    /** Each wakes the worker and waits until it has the change, after a cycle in progress. 0, even
     *  if the list did not change; -EINVAL: null. No memory: std::bad_alloc, nothing changes. */
    [[nodiscard]] virtual int addStream(sp<AudioStream> stream)
        EXCLUDES(mListLock, mLock, mCommandLock);
    virtual int removeStream(sp<AudioStream> stream) EXCLUDES(mListLock, mLock, mCommandLock);
    [[nodiscard]] virtual int registerOutput(sp<AudioOutput> output)
        EXCLUDES(mListLock, mLock, mCommandLock);
    virtual int unregisterOutput(sp<AudioOutput> output) EXCLUDES(mListLock, mLock, mCommandLock);

    /** The worker gives the offset (ms, 32 bits) to every stream before its next cycle. Does not
     *  wait. 0; -ENOMEM: no stream gets it. */
    virtual int updateLatencyOffset(long offsetMs) EXCLUDES(mCommandLock);

    /** Queues a command and wakes the worker; does not wait. The last argument is dropped. 0;
     *  -ENOMEM: nothing is queued, but the worker is woken. */
    virtual int sendCommand(int code, int arg1, int arg2, int arg3) EXCLUDES(mCommandLock);
    /** Drops every queued command of that code. */
    virtual void removeCommand(int code) EXCLUDES(mCommandLock);
    /** Handles and empties the queue, oldest first. Senders do not wait for that. If one is just
     *  posting, it leaves the queue to the next pass, for which that sender wakes it. */
    virtual void handleConfigEvent() REQUIRES(mLock) EXCLUDES(mCommandLock);

    /** How long to sleep after a cycle that produced nothing, in ns. */
    virtual int64_t computeSleepTimeNs_l() REQUIRES(mLock);
    virtual bool isReadyToProcess_l() REQUIRES(mLock);
    /** One cycle; more than 0 if it produced something. */
    virtual ssize_t threadLoopProcess_l() REQUIRES(mLock);

protected:
    void handleConfigLatecyOffset_l(int offsetMs) REQUIRES(mLock);

    const String8 mName;
    Mutex mListLock{"lists"};  // a control thread's, for one change; never the worker's
    // In the order added. The worker's copy, or the one offered to it, keeps them alive.
    Vector<AudioStream*> mListedStreams GUARDED_BY(mListLock);
    Vector<AudioOutput*> mListedOutputs GUARDED_BY(mListLock);
    // Held for a whole cycle, released while the worker sleeps.
    ThreadLock mLock{"worker turn", "worker"};
    Mutex mCommandLock{"command queue"};  // the worker tries it and never waits for it
    Vector<sp<Command>> mCommands GUARDED_BY(mCommandLock);  // oldest first
    // Written under mCommandLock; wake() publishes it.
    std::atomic<bool> mHasCommands{false};
    // The worker frees no memory: the next sender frees the commands that it has handled. Empty
    // while mCommands is not.
    Vector<sp<Command>> mHandled GUARDED_BY(mCommandLock);
    Vector<sp<Command>> mTaken GUARDED_BY(mLock);        // being handled, or handled last
    Vector<sp<AudioStream>> mStreams GUARDED_BY(mLock);  // the lists as the worker knows them
    Vector<sp<AudioOutput>> mOutputs GUARDED_BY(mLock);
    // The streams of the current cycle: a stream opened meanwhile joins the next one. Empty between
    // cycles; always with room for all that are listed.
    Vector<sp<AudioStream>> mOpened GUARDED_BY(mLock);

private:
    /** Appends; false if it is listed. Throws std::bad_alloc with nothing changed. */
    template <typename T>
    [[nodiscard]] bool add_l(Vector<T*>& items, T* item) REQUIRES(mListLock);
    /** Makes the change, which returns whether there was one, waits until the worker has it, then
     *  sends the command. */
    template <typename Change>
    void announce(CommandCode code, Change change) EXCLUDES(mListLock, mLock, mCommandLock);
    [[nodiscard]] int post(const sp<Command>& command) EXCLUDES(mCommandLock);
    /** Moves the queue to mTaken; false: it is empty, or a sender holds it. */
    [[nodiscard]] bool takeCommands_l() REQUIRES(mLock) EXCLUDES(mCommandLock);
    /** Wakes the worker for a pass that looks at the queue. */
    void tellOfCommand();
    void wake();
    /** Sleeps with mLock released until a command is sent or the monotonic clock reaches the
     *  deadline; not at all if one was sent before. Takes over new lists meanwhile. */
    void waitForCommand(int64_t deadlineNs) REQUIRES(mLock) EXCLUDES(mCommandLock);

    ListHandover mHandover;
    WakeFlag<> mWake;  // something was sent or offered; its word is a futex
    // Commands sent; release: the queue first. And those that the current pass has seen.
    std::atomic<uint32_t> mCommandCount{0};
    uint32_t mSeenCommandCount GUARDED_BY(mLock) = 0;
    status_t mStartStatus = -EINVAL;  // written before any other thread knows this one
};

}  // namespace android
