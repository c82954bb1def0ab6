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
 * and holds it until it returns. So a stream that another thread destroys outlives the call, and a
 * destroyed handle is refused instead of followed.
 *
 * Threads: any. The lock is held to search the list, never to allocate: a callback may wait for it.
 */
class StreamHandles {
public:
    enum class Kind {
        kLive,
        kGone,     // destroyed a moment ago
        kForeign,  // unknown: another implementation of the interface
    };
    struct Found {
        Kind kind;
        sp<AudioStream> stream;  // of a live handle
    };

    /** Makes room for one more. Throws std::bad_alloc. One thread at a time, until it has added. */
    void reserve();
    /** Within the room reserved. */
    void add(const sp<AudioStream>& stream);

    Found find(const audio_proxy_stream_t* handle);
    /** As find(); a live handle is gone afterwards. */
    Found remove(const audio_proxy_stream_t* handle);
    /** Removes all live handles; their streams, in the order created. */
    Vector<sp<AudioStream>> removeAll();
    /** False if a thread that a forked process does not have may hold the lock. */
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
    std::array<Gone, 64> mGone = {};  // the latest
    size_t mNextGone = 0;
};

}  // namespace android
