#include "interface/LibraryState.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <new>

namespace android {

namespace {

// A callback that hangs delays the end of the process by this long.
constexpr int64_t kEndPatienceNs = 1'000'000'000;

// Storage that no destructor touches when the process ends.
alignas(LibraryState) std::byte gStorage[sizeof(LibraryState)];
std::atomic<bool> gIsAbandoned{false};
std::atomic<bool> gIsUsed{false};
bool gIsUnloading = false;
std::atomic<bool> gHasProcessEnded{false};

// When a library is unloaded, its destructor functions run before the destructors of its objects.
[[gnu::destructor]] void noteUnloading() {
    gIsUnloading = true;
}

/** Created while the process runs, so it is destroyed before everything created while the process
 *  was loaded, or, with the library, after noteUnloading(). */
class ProcessEnd {
public:
    ProcessEnd() = default;
    ~ProcessEnd() {
        // The worker can't wait for itself.
        if (gIsUnloading || gHasProcessEnded.exchange(true) || LibraryState::isAbandoned() ||
            CallbackScope::isActive()) {
            return;
        }
        const sp<AudioPipeline> pipeline = LibraryState::instance().pipeline.get();
        if (pipeline != nullptr && !pipeline->stopWithin(kEndPatienceNs)) {
            gIsAbandoned.store(true, std::memory_order_relaxed);
        }
    }
    ProcessEnd(const ProcessEnd&) = delete;
    ProcessEnd& operator=(const ProcessEnd&) = delete;
};

/** Creates the state when the library is loaded and releases it when the library is unloaded. */
class LibraryLife {
public:
    LibraryLife() {
        new (gStorage) LibraryState();
        pthread_atfork(nullptr, nullptr, &LibraryLife::enterFork);
    }
    ~LibraryLife() {
        if (gHasProcessEnded || LibraryState::isAbandoned() || CallbackScope::isActive()) {
            return;
        }
        if (gIsUsed) {
            LibraryState::instance().~LibraryState();
        } else {
            // The process may be ending, and another thread about to create the first pipeline.
            LibraryState::instance().callbackKey.~Key();
        }
    }
    LibraryLife(const LibraryLife&) = delete;
    LibraryLife& operator=(const LibraryLife&) = delete;

private:
    /** In the new process, which has one thread. */
    static void enterFork() NO_THREAD_SAFETY_ANALYSIS {
        LibraryState& state = LibraryState::instance();
        if (state.pipeline.isFilled() || !state.pipeline.isUsable() || !state.streams.isUsable() ||
            state.lock.tryLock() != OK) {
            gIsAbandoned.store(true, std::memory_order_relaxed);
            return;
        }
        state.lock.unlock();
    }
};

LibraryLife gLife;

}  // namespace

LibraryState& LibraryState::instance() {
    return *std::launder(reinterpret_cast<LibraryState*>(gStorage));
}

void LibraryState::watchForProcessEnd(bool hasOutput) {
    gIsUsed = true;
    if (hasOutput) {
        static const ProcessEnd withOutput;
    } else {
        static const ProcessEnd withPipeline;
    }
}

bool LibraryState::hasProcessEnded() {
    return gHasProcessEnded.load(std::memory_order_relaxed);
}

bool LibraryState::isAbandoned() {
    return gIsAbandoned.load(std::memory_order_relaxed);
}

LibraryState::~LibraryState() {
    const sp<AudioPipeline> last = pipeline.exchange(nullptr);
    if (last != nullptr) {
        release(last);
    }
}

void LibraryState::release(const sp<AudioPipeline>& gone) {
    gone->stop();
    for (const sp<AudioStream>& stream : streams.removeAll()) {
        // An open tunnel stream and its parser hold each other. Nobody hears the frames left in a
        // ring, so the close need not wait for them.
        stream->retire();
        stream->endWrite();
        stream->flush();
        stream->close();
    }
}

}  // namespace android
