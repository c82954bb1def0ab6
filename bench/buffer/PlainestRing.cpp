#include "bench/buffer/PlainestRing.h"

#include <algorithm>
#include <cstring>

PlainestRing::PlainestRing(size_t frameCount, size_t frameSize)
    : mFrameCount(frameCount), mFrameSize(frameSize), mStorage(frameCount * frameSize) {}

size_t PlainestRing::write(const void* frames, size_t count) {
    const uint64_t at = mWrite.load(std::memory_order_relaxed);
    count = std::min(count, mFrameCount - (at - mRead.load(std::memory_order_acquire)));
    const size_t index = at & (mFrameCount - 1);
    const size_t first = std::min(count, mFrameCount - index);
    const auto* bytes = static_cast<const uint8_t*>(frames);
    memcpy(mStorage.data() + index * mFrameSize, bytes, first * mFrameSize);
    if (count > first) {
        memcpy(mStorage.data(), bytes + first * mFrameSize, (count - first) * mFrameSize);
    }
    mWrite.store(at + count, std::memory_order_release);
    return count;
}

size_t PlainestRing::read(void* frames, size_t count) {
    const uint64_t at = mRead.load(std::memory_order_relaxed);
    count = std::min(count, mWrite.load(std::memory_order_acquire) - at);
    const size_t index = at & (mFrameCount - 1);
    const size_t first = std::min(count, mFrameCount - index);
    auto* bytes = static_cast<uint8_t*>(frames);
    memcpy(bytes, mStorage.data() + index * mFrameSize, first * mFrameSize);
    if (count > first) {
        memcpy(bytes + first * mFrameSize, mStorage.data(), (count - first) * mFrameSize);
    }
    mRead.store(at + count, std::memory_order_release);
    return count;
}

size_t PlainestRing::obtain(void** region, size_t count) {
    const uint64_t at = mRead.load(std::memory_order_relaxed);
    const size_t index = at & (mFrameCount - 1);
    *region = mStorage.data() + index * mFrameSize;
    return std::min({count, mWrite.load(std::memory_order_acquire) - at, mFrameCount - index});
}

void PlainestRing::release(size_t count) {
    mRead.store(mRead.load(std::memory_order_relaxed) + count, std::memory_order_release);
}
