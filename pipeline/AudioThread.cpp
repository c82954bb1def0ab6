#include "pipeline/AudioThread.h"

#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "android/log.h"
#include "utils/Timers.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_thread";
constexpr int kUrgentAudioPriority = -19;
constexpr int64_t kIdleSleepNs = 1'000'000'000;
constexpr int64_t kNoDeadline = std::numeric_limits<int64_t>::max();

/** The index of an item by identity, or -1. */
template <typename T>
ssize_t indexOf(const Vector<sp<T>>& items, const sp<T>& item) {
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i] == item) {
            return static_cast<ssize_t>(i);
        }
    }
    return -1;
}

template <typename T>
bool removeFirst(Vector<sp<T>>& items, const sp<T>& item) {
    const ssize_t index = indexOf(items, item);
    if (index < 0) {
        return false;
    }
    items.removeAt(static_cast<size_t>(index));
    return true;
}

int64_t deadlineIn(int64_t durationNs) {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    return durationNs > kNoDeadline - now ? kNoDeadline : now + durationNs;
}

}  // namespace

AudioThread::AudioThread(const String8& name) : Thread(true), mName(name) {}

AudioThread::~AudioThread() {
    AudioThread::exit();
    const ThreadLock::Autolock lock(mLock);
    mStreams.clear();
    mOutputs.clear();
}

void AudioThread::onFirstRef() {
    mStartStatus = run(mName.c_str(), kUrgentAudioPriority, 0);
    if (mStartStatus != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to start the worker %s: %d",
                            __func__, mName.c_str(), mStartStatus);
    }
}

int AudioThread::exit() {
    {
        const ThreadLock::Autolock lock(mLock);
        requestExit();
        sendCommand(CONFIG_EXIT, 0, 0, 0);
    }
    requestExitAndWait();
    return OK;
}

int AudioThread::addStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    {
        const ThreadLock::Autolock lock(mLock);
        if (indexOf(mStreams, stream) < 0) {
            mOpened.setCapacity(mStreams.size() + 1);
            mStreams.add(stream);
        }
    }
    sendCommand(CONFIG_ADD_STREAM, 0, 0, 0);
    return OK;
}

int AudioThread::removeStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    {
        const ThreadLock::Autolock lock(mLock);
        if (!removeFirst(mStreams, stream)) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "%s, this stream is not in the list",
                                __func__);
        }
    }
    sendCommand(CONFIG_REMOVE_STREAM, 0, 0, 0);
    return OK;
}

int AudioThread::registerOutput(sp<AudioOutput> output) {
    if (output == nullptr) {
        return -EINVAL;
    }
    {
        const ThreadLock::Autolock lock(mLock);
        if (indexOf(mOutputs, output) < 0) {
            mOutputs.add(output);
        }
    }
    sendCommand(CONFIG_REGISTER_OUTPUT, 0, 0, 0);
    return OK;
}

int AudioThread::unregisterOutput(sp<AudioOutput> output) {
    if (output == nullptr) {
        return -EINVAL;
    }
    {
        const ThreadLock::Autolock lock(mLock);
        removeFirst(mOutputs, output);
    }
    sendCommand(CONFIG_UNREGISTER_OUTPUT, 0, 0, 0);
    return OK;
}

int AudioThread::updateLatencyOffset(long offsetMs) {
    return sendCommand(CONFIG_LATENCY_OFFSET, static_cast<int>(offsetMs), 0, 0);
}

int AudioThread::sendCommand(int code, int arg1, int arg2, int /*arg3*/) {
    const sp<Command> command(new (std::nothrow) Command());
    if (command != nullptr) {
        command->mCode = code;
        command->mArg1 = arg1;
        command->mArg2 = arg2;
    }
    Vector<sp<Command>> handled;  // given back behind the lock
    const CommandLock::Autolock lock(mCommandLock);
    std::swap(handled, mHandled);
    // Also without memory: most commands are told by what was done before they were sent.
    mWoken = true;
    mCommandLock.signal();
    if (command == nullptr) {
        return -ENOMEM;
    }
    try {
        mCommands.add(command);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return OK;
}

void AudioThread::removeCommand(int code) {
    Vector<sp<Command>> removed;  // given back behind the lock
    const CommandLock::Autolock lock(mCommandLock);
    removed.setCapacity(mCommands.size());
    for (size_t i = mCommands.size(); i-- > 0;) {
        if (mCommands[i]->mCode == code) {
            removed.add(mCommands[i]);
            mCommands.removeAt(i);
        }
    }
}

void AudioThread::handleConfigEvent() {
    const CommandLock::Autolock lock(mCommandLock);
    for (const sp<Command>& command : mCommands) {
        switch (command->mCode) {
            case CONFIG_ADD_STREAM:
            case CONFIG_REMOVE_STREAM:
            case CONFIG_REGISTER_OUTPUT:
            case CONFIG_UNREGISTER_OUTPUT:
                break;
            case CONFIG_LATENCY_OFFSET:
                handleConfigLatecyOffset_l(command->mArg1);
                break;
            default:
                __android_log_print(ANDROID_LOG_WARN, kTag, "%s, unexpected event %d", __func__,
                                    command->mCode);
                break;
        }
    }
    if (!mCommands.isEmpty()) {
        std::swap(mCommands, mHandled);
    }
    mWoken = false;
}

void AudioThread::handleConfigLatecyOffset_l(int offsetMs) {
    for (const sp<AudioStream>& stream : mStreams) {
        stream->setDownstreamLatencyOffset(offsetMs);
    }
}

int64_t AudioThread::computeSleepTimeNs_l() {
    return kIdleSleepNs;
}

bool AudioThread::isReadyToProcess_l() {
    return !mStreams.isEmpty() && !mOutputs.isEmpty();
}

ssize_t AudioThread::threadLoopProcess_l() {
    return 0;
}

bool AudioThread::threadLoop() {
    while (!exitPending()) {
        const ThreadLock::Autolock lock(mLock);
        if (exitPending()) {
            break;
        }
        handleConfigEvent();
        if (!isReadyToProcess_l()) {
            waitForCommand(kNoDeadline);
            continue;
        }
        const int64_t sleepNs = computeSleepTimeNs_l();
        if (threadLoopProcess_l() <= 0) {
            waitForCommand(deadlineIn(sleepNs));
        }
    }
    return true;
}

// The command lock is taken before mLock is let go, and commands are posted under it: none can slip
// in between the look at the queue and the sleep, and posting never waits for a cycle.
void AudioThread::waitForCommand(int64_t deadlineNs) NO_THREAD_SAFETY_ANALYSIS {
    mCommandLock.lock();
    mLock.unlock();
    while (!mWoken) {
        if (deadlineNs == kNoDeadline) {
            mCommandLock.wait();
        } else if (!mCommandLock.waitUntil(deadlineNs)) {
            break;
        }
    }
    mCommandLock.unlock();
    mLock.lock();
}

}  // namespace android
