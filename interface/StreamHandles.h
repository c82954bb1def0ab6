#pragma once

#include <array>
#include <cstddef>
#include <shared_mutex>

#include "interface/streamproxy.h"
#include "stream/AudioStream.h"
#include "utils/RefBase.h"
#include "utils/Timers.h"
#include "utils/Vector.h"

namespace android {

/**
 * The streams that a host has handles of. A handle is a bare pointer: a call finds its stream here
 * and holds it to its end, so that a stream which another thread destroys meanwhile outlives the
 * call, and a handle that was destroyed is refused instead of followed.
 *
 * Threads: any. The lock is held for a look through the list, and for no allocation: a callback may
 * wait for it.
 */
class StreamHandles {
public:
    enum class Kind {
        kLive,
        kGone,     // destroyed a moment ago
        kForeign,  // never seen: another implementation of the interface
    };
    struct Found {
        Kind kind;
        sp<AudioStream> stream;  // of a live handle
    };

    /** Makes room for one more. Throws std::bad_alloc. One thread at a time, until it has added. */
    void reserve();
    /** Within what was reserved. */
    void add(const sp<AudioStream>& stream);

    Found find(const audio_proxy_stream_t* handle);
    /** The same, and a live handle is gone from here on. */
    Found remove(const audio_proxy_stream_t* handle);
    /** All live handles are gone; their streams, in the order created. */
    Vector<sp<AudioStream>> removeAll();
    /** False where a thread that a forked process does not have may hold the lock. */
    bool isUsable();

private:
    Found find_l(const audio_proxy_stream_t* handle) const;
    void remember_l(const audio_proxy_stream_t* gone);

    std::shared_mutex mLock;  // of the rest; nothing else is taken under it
    Vector<sp<AudioStream>> mLive;
    size_t mCapacity = 0;
    struct Gone {
        const audio_proxy_stream_t* handle;
        nsecs_t atNs;  // monotonic
    };
    std::array<Gone, 64> mGone = {};  // the last ones
    size_t mNextGone = 0;
};

}  // namespace android
