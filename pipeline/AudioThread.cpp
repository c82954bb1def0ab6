#include "pipeline/AudioThread.h"

#include <cerrno>
#include <new>
#include <utility>

#include "android/log.h"
#include "sync/Futex.h"

namespace android {

namespace {

constexpr const char* kTag = "audio_thread";
constexpr int kUrgentAudioPriority = -19;
constexpr int64_t kIdleSleepNs = 1'000'000'000;

/** The index of an item by identity, or -1. */
template <typename T>
ssize_t indexOf(const Vector<T*>& items, const T* item) {
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i] == item) {
            return static_cast<ssize_t>(i);
        }
    }
    return -1;
}

template <typename T>
bool removeFirst(Vector<T*>& items, const T* item) {
    const ssize_t index = indexOf(items, item);
    if (index < 0) {
        return false;
    }
    items.removeAt(static_cast<size_t>(index));
    return true;
}

}  // namespace

AudioThread::AudioThread(const String8& name) : Thread(true), mName(name) {}

AudioThread::~AudioThread() {
    AudioThread::exit();
    const Mutex::Autolock listLock(mListLock);
    const ThreadLock::Autolock lock(mLock);
    mListedStreams.clear();
    mListedOutputs.clear();
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
    requestExit();
    sendCommand(CONFIG_EXIT, 0, 0, 0);
    wake();
    requestExitAndWait();
    return OK;
}

bool AudioThread::exitWithin(int64_t limitNs) {
    requestExit();
    wake();
    if (!mHandover.waitUntilStopped(Futex::deadlineIn(limitNs))) {
        return false;
    }
    requestExitAndWait();
    return true;
}

int AudioThread::addStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    announce(CONFIG_ADD_STREAM,
             [&]() REQUIRES(mListLock) { return add_l(mListedStreams, stream.get()); });
    return OK;
}

int AudioThread::removeStream(sp<AudioStream> stream) {
    if (stream == nullptr) {
        return -EINVAL;
    }
    announce(CONFIG_REMOVE_STREAM, [&]() REQUIRES(mListLock) {
        const bool isListed = removeFirst(mListedStreams, stream.get());
        if (!isListed) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "%s, this stream is not in the list",
                                "removeStream");
        }
        return isListed;
    });
    return OK;
}

int AudioThread::registerOutput(sp<AudioOutput> output) {
    if (output == nullptr) {
        return -EINVAL;
    }
    announce(CONFIG_REGISTER_OUTPUT,
             [&]() REQUIRES(mListLock) { return add_l(mListedOutputs, output.get()); });
    return OK;
}

int AudioThread::unregisterOutput(sp<AudioOutput> output) {
    if (output == nullptr) {
        return -EINVAL;
    }
    announce(CONFIG_UNREGISTER_OUTPUT,
             [&]() REQUIRES(mListLock) { return removeFirst(mListedOutputs, output.get()); });
    return OK;
}

template <typename T>
bool AudioThread::add_l(Vector<T*>& items, T* item) {
    if (indexOf(items, item) >= 0) {
        return false;
    }
    // For one more of either, whichever list grows.
    mHandover.reserve(mListedStreams.size() + 1, mListedOutputs.size() + 1);
    items.add(item);
    return true;
}

template <typename Change>
void AudioThread::announce(CommandCode code, Change change) {
    bool isChanged = false;
    uint32_t ticket = 0;
    {
        const Mutex::Autolock lock(mListLock);
        isChanged = change();
        if (isChanged) {
            ticket = mHandover.offer(mListedStreams, mListedOutputs);
        }
    }
    if (isChanged) {
        wake();
        mHandover.waitUntilTaken(ticket);
        const Mutex::Autolock listLock(mListLock);  // no offer is taken back meanwhile
        if (!mHandover.isTaken(ticket)) {
            const ThreadLock::Autolock lock(mLock);  // there is no worker
            mHandover.takeOver(mStreams, mOutputs, mOpened);
        }
        mHandover.collect();
    }
    sendCommand(code, 0, 0, 0);
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
    const int status = post(command);
    // Wake the worker even without memory: most commands only say that a change is made. And after
    // the lock is released: a worker that found it taken left the queue for this wake-up.
    tellOfCommand();
    return status;
}

int AudioThread::post(const sp<Command>& command) {
    Vector<sp<Command>> handled;  // freed after the lock is released
    const Mutex::Autolock lock(mCommandLock);
    std::swap(handled, mHandled);
    if (command == nullptr) {
        return -ENOMEM;
    }
    try {
        mCommands.add(command);
        mHasCommands.store(true, std::memory_order_relaxed);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return OK;
}

void AudioThread::tellOfCommand() {
    mCommandCount.fetch_add(1, std::memory_order_release);
    wake();
}

void AudioThread::wake() {
    mWake.set([](std::atomic<uint32_t>& word) { Futex::wake(word, 1); });
}

void AudioThread::removeCommand(int code) {
    {
        const Mutex::Autolock lock(mCommandLock);
        for (size_t i = mCommands.size(); i-- > 0;) {
            if (mCommands[i]->mCode == code) {
                mCommands.removeAt(i);
            }
        }
    }
    tellOfCommand();  // for the commands left, see sendCommand()
}

// The analysis does not follow a lock that is only tried.
bool AudioThread::takeCommands_l() NO_THREAD_SAFETY_ANALYSIS {
    if (mCommandLock.tryLock() != OK) {
        return false;
    }
    mHasCommands.store(false, std::memory_order_relaxed);
    const bool hasCommands = !mCommands.isEmpty();
    if (hasCommands) {
        std::swap(mTaken, mHandled);
        std::swap(mTaken, mCommands);
    }
    mCommandLock.unlock();
    return hasCommands;
}

void AudioThread::handleConfigEvent() {
    if (!mHasCommands.load(std::memory_order_relaxed) || !takeCommands_l()) {
        return;
    }
    for (const sp<Command>& command : mTaken) {
        switch (command->mCode) {
            case CONFIG_ADD_STREAM:
            case CONFIG_REMOVE_STREAM:
            case CONFIG_REGISTER_OUTPUT:
            case CONFIG_UNREGISTER_OUTPUT:
                break;  // it has woken the worker, which has the new lists by now
            case CONFIG_LATENCY_OFFSET:
                handleConfigLatecyOffset_l(command->mArg1);
                break;
            case CONFIG_EXIT:
                if (exitPending()) {
                    break;  // from exit(): the worker leaves before it handles commands again
                }
                [[fallthrough]];
            default:
                __android_log_print(ANDROID_LOG_WARN, kTag, "%s, unexpected event %d", __func__,
                                    command->mCode);
                break;
        }
    }
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
    mHandover.setWorking(true);
    while (!exitPending()) {
        const ThreadLock::Autolock lock(mLock);
        mWake.take();  // before looking for what it may announce
        mSeenCommandCount = mCommandCount.load(std::memory_order_acquire);
        if (exitPending()) {
            break;
        }
        mHandover.takeOver(mStreams, mOutputs, mOpened);
        handleConfigEvent();
        if (!isReadyToProcess_l()) {
            waitForCommand(Futex::kNoDeadline);
            continue;
        }
        const int64_t sleepNs = computeSleepTimeNs_l();
        if (threadLoopProcess_l() <= 0) {
            waitForCommand(Futex::deadlineIn(sleepNs));
        }
    }
    mHandover.setWorking(false);
    return true;
}

void AudioThread::waitForCommand(int64_t deadlineNs) NO_THREAD_SAFETY_ANALYSIS {
    bool isInTime = true;
    while (isInTime && !exitPending() &&
           mCommandCount.load(std::memory_order_acquire) == mSeenCommandCount) {
        mLock.unlock();
        mWake.wait([&isInTime, deadlineNs](std::atomic<uint32_t>& word, uint32_t expected) {
            isInTime = Futex::waitUntil(word, expected, deadlineNs);
            return isInTime;
        });
        mLock.lock();
        // A changed list alone does not start a cycle: its command comes next.
        mWake.take();
        mHandover.takeOver(mStreams, mOutputs, mOpened);
    }
}

}  // namespace android
