#pragma once

#include <atomic>
#include <boost/align/aligned_allocator.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

/**
 * The least that a ring of frames behind an interface needs: a virtual call, two positions, and
 * copies whose size is known at run time. It checks nothing, and its round capacity saves the wrap
 * of an index: a ring that does more cannot be expected to be faster.
 * Threads: one writes, one reads.
 */
class PlainestRing {
public:
    /** `frameCount` is a power of two. */
    PlainestRing(size_t frameCount, size_t frameSize);
    virtual ~PlainestRing() = default;
    PlainestRing(const PlainestRing&) = delete;
    PlainestRing& operator=(const PlainestRing&) = delete;

    virtual size_t write(const void* frames, size_t count);
    virtual size_t read(void* frames, size_t count);
    /** Up to `count` frames in place. */
    virtual size_t obtain(void** region, size_t count);
    virtual void release(size_t count);

private:
    const size_t mFrameCount;
    const size_t mFrameSize;
    std::vector<uint8_t, boost::alignment::aligned_allocator<uint8_t, 64>> mStorage;
    alignas(64) std::atomic<uint64_t> mRead{0};
    alignas(64) std::atomic<uint64_t> mWrite{0};
};
