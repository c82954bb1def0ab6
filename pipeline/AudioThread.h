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
 * handles the commands, runs one cycle of work when there is a stream and an output, and sleeps
 * when the cycle produced nothing. The first strong reference starts it.
 *
 * Control threads change lists of their own and hand the worker a copy, which it takes over between
 * two cycles. While it runs nobody else takes its lock but for a change of the whole mix, when there
 * is none: a control thread that the system preempts holds nothing that the worker waits for.
 *
 * Lock order of the whole library: platform/utils/LockOrder.cpp.
 * Threads: any may call; exit() not the worker.
 */
class AudioThread : public Thread {
public:
    /** Only CONFIG_LATENCY_OFFSET is carried out. The others just wake the worker: what they name is
     *  done before they are sent. */
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
    /** What came of starting the worker: 0, or a negative errno value. */
    [[nodiscard]] status_t startStatus() const { return mStartStatus; }

    /** Stops the worker after its cycle and waits for it; at once when it has stopped. 0. */
    virtual int exit() EXCLUDES(mLock, mCommandLock);
    /** The same for `limitNs` at most; false: the worker is still in its cycle, and will stop after
     *  it. */
    [[nodiscard]] bool exitWithin(int64_t limitNs) EXCLUDES(mLock, mCommandLock);

    /** Each wakes the worker and waits until it has the change, which is after a cycle in progress.
     *  0, whether or not the list changed; -EINVAL: null. No memory: std::bad_alloc, and nothing
     *  changed. */
    [[nodiscard]] virtual int addStream(sp<AudioStream> stream)
        EXCLUDES(mListLock, mLock, mCommandLock);
    virtual int removeStream(sp<AudioStream> stream) EXCLUDES(mListLock, mLock, mCommandLock);
    [[nodiscard]] virtual int registerOutput(sp<AudioOutput> output)
        EXCLUDES(mListLock, mLock, mCommandLock);
    virtual int unregisterOutput(sp<AudioOutput> output) EXCLUDES(mListLock, mLock, mCommandLock);

    /** The worker gives the offset (ms, 32 bits) to every stream before its next cycle. Does not
     *  wait. 0; -ENOMEM: nobody is given anything. */
    virtual int updateLatencyOffset(long offsetMs) EXCLUDES(mCommandLock);

    /** Queues a command and wakes the worker; does not wait. The last argument is not kept. 0;
     *  -ENOMEM: nothing is queued, and the worker woken all the same. */
    virtual int sendCommand(int code, int arg1, int arg2, int arg3) EXCLUDES(mCommandLock);
    /** Drops every command of that code that is still queued. */
    virtual void removeCommand(int code) EXCLUDES(mCommandLock);
    /** Handles and empties the queue, oldest first. Senders do not wait for that. While one is in
     *  the middle of posting, the queue is left for the next pass, which that sender brings about. */
    virtual void handleConfigEvent() REQUIRES(mLock) EXCLUDES(mCommandLock);

    /** How long to sleep after a cycle that produced nothing, in ns. */
    virtual int64_t computeSleepTimeNs_l() REQUIRES(mLock);
    virtual bool isReadyToProcess_l() REQUIRES(mLock);
    /** One cycle; more than 0 when it produced something. */
    virtual ssize_t threadLoopProcess_l() REQUIRES(mLock);

protected:
    void handleConfigLatecyOffset_l(int offsetMs) REQUIRES(mLock);

    const String8 mName;
    Mutex mListLock{"lists"};  // a control thread's, for one change; never the worker's
    // In the order added, and registered. The worker's copy, or the one that it is offered, holds them.
    Vector<AudioStream*> mListedStreams GUARDED_BY(mListLock);
    Vector<AudioOutput*> mListedOutputs GUARDED_BY(mListLock);
    ThreadLock mLock;  // held for a whole cycle, released while the worker sleeps
    Mutex mCommandLock{"command queue"};  // the worker tries it and never waits for it
    Vector<sp<Command>> mCommands GUARDED_BY(mCommandLock);  // oldest first
    // Written under mCommandLock; wake() publishes it.
    std::atomic<bool> mHasCommands{false};
    // The worker gives back no memory: what it has handled goes this way to the next sender. Empty
    // while mCommands is not.
    Vector<sp<Command>> mHandled GUARDED_BY(mCommandLock);
    Vector<sp<Command>> mTaken GUARDED_BY(mLock);        // being handled, or handled last
    Vector<sp<AudioStream>> mStreams GUARDED_BY(mLock);  // the lists as the worker knows them
    Vector<sp<AudioOutput>> mOutputs GUARDED_BY(mLock);
    // The streams of the cycle under way: a stream opened meanwhile stays out until it ends. Empty
    // between cycles; always with room for all that are listed.
    Vector<sp<AudioStream>> mOpened GUARDED_BY(mLock);

private:
    /** Appends; false where it is listed. Throws std::bad_alloc with nothing changed. */
    template <typename T>
    [[nodiscard]] bool add_l(Vector<T*>& items, T* item) REQUIRES(mListLock);
    /** Makes the change, which says whether there was one, and waits until the worker has it; then sends
     *  the command. */
    template <typename Change>
    void announce(CommandCode code, Change change) EXCLUDES(mListLock, mLock, mCommandLock);
    [[nodiscard]] int post(const sp<Command>& command) EXCLUDES(mCommandLock);
    /** Moves what is queued to mTaken; false: nothing, or a sender is at it. */
    [[nodiscard]] bool takeCommands_l() REQUIRES(mLock) EXCLUDES(mCommandLock);
    /** Brings about a pass that looks at the queue. */
    void tellOfCommand();
    void wake();
    /** Sleeps with mLock released until a command is sent, or the monotonic clock reaches the
     *  deadline. A command that came before the sleep ends it at once. Takes new lists over in
     *  between. */
    void waitForCommand(int64_t deadlineNs) REQUIRES(mLock) EXCLUDES(mCommandLock);

    ListHandover mHandover;
    WakeFlag<> mWake;  // something was sent or offered; its word is a futex
    // Of what was sent; release: the queue first. And how many of those the pass under way knows of.
    std::atomic<uint32_t> mCommandCount{0};
    uint32_t mSeenCommandCount GUARDED_BY(mLock) = 0;
    status_t mStartStatus = -EINVAL;  // written before anybody else knows of the thread
};

}  // namespace android
