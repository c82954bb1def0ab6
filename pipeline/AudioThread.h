#pragma once

#include <cstdint>

#include "pipeline/AudioOutput.h"
#include "pipeline/CommandLock.h"
#include "pipeline/ThreadLock.h"
#include "stream/AudioStream.h"
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
 * Lock order of the whole library: platform/utils/LockOrder.cpp.
 * Threads: any may call; exit() not the worker.
 */
class AudioThread : public Thread {
public:
    enum CommandCode {
        CONFIG_EXIT = 0,
        CONFIG_ADD_STREAM = 1,
        CONFIG_REMOVE_STREAM = 2,
        CONFIG_REGISTER_OUTPUT = 3,
        CONFIG_UNREGISTER_OUTPUT = 4,
        CONFIG_LATENCY_OFFSET = 5,
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
    status_t startStatus() const { return mStartStatus; }

    /** Stops the worker after its cycle and waits for it; at once when it has stopped. 0. */
    virtual int exit() EXCLUDES(mLock, mCommandLock);

    /** Each waits for a cycle in progress, then wakes the worker. 0, whether or not the list
     *  changed; -EINVAL: null. */
    virtual int addStream(sp<AudioStream> stream) EXCLUDES(mLock, mCommandLock);
    virtual int removeStream(sp<AudioStream> stream) EXCLUDES(mLock, mCommandLock);
    virtual int registerOutput(sp<AudioOutput> output) EXCLUDES(mLock, mCommandLock);
    virtual int unregisterOutput(sp<AudioOutput> output) EXCLUDES(mLock, mCommandLock);

    /** The worker gives the offset (ms, 32 bits) to every stream before its next cycle. Does not
     *  wait. 0; -ENOMEM: nobody is given anything. */
    virtual int updateLatencyOffset(long offsetMs) EXCLUDES(mCommandLock);

    /** Queues a command and wakes the worker; does not wait. The last argument is not kept. 0;
     *  -ENOMEM: nothing is queued, and the worker woken all the same. */
    virtual int sendCommand(int code, int arg1, int arg2, int arg3) EXCLUDES(mCommandLock);
    /** Drops every queued command of that code. */
    virtual void removeCommand(int code) EXCLUDES(mCommandLock);
    /** Handles and empties the queue, oldest first. */
    virtual void handleConfigEvent() REQUIRES(mLock) EXCLUDES(mCommandLock);

    /** How long to sleep after a cycle that produced nothing, in ns. */
    virtual int64_t computeSleepTimeNs_l() REQUIRES(mLock);
    virtual bool isReadyToProcess_l() REQUIRES(mLock);
    /** One cycle; more than 0 when it produced something. */
    virtual ssize_t threadLoopProcess_l() REQUIRES(mLock);

protected:
    void handleConfigLatecyOffset_l(int offsetMs) REQUIRES(mLock);

    const String8 mName;
    ThreadLock mLock;          // held for a whole cycle, released while the worker sleeps
    CommandLock mCommandLock;  // guards the queue; the worker sleeps on its condition
    Vector<sp<Command>> mCommands GUARDED_BY(mCommandLock);  // oldest first
    // The worker gives back no memory: what it has handled waits for the next sender. Empty while
    // mCommands is not.
    Vector<sp<Command>> mHandled GUARDED_BY(mCommandLock);
    bool mWoken GUARDED_BY(mCommandLock) = false;        // somebody has sent something
    Vector<sp<AudioStream>> mStreams GUARDED_BY(mLock);  // in the order added
    // The streams of the cycle under way: a stream paused or opened meanwhile stays out or in until
    // it ends. Empty between cycles; always with room for all that are listed, made by the thread
    // that adds one.
    Vector<sp<AudioStream>> mOpened GUARDED_BY(mLock);
    Vector<sp<AudioOutput>> mOutputs GUARDED_BY(mLock);  // in the order registered

private:
    /** Sleeps with mLock released until a command is sent, or the monotonic clock reaches the
     *  deadline. A command that came before the sleep ends it at once. */
    void waitForCommand(int64_t deadlineNs) REQUIRES(mLock) EXCLUDES(mCommandLock);

    status_t mStartStatus = -EINVAL;  // written before anybody else knows of the thread
};

}  // namespace android
