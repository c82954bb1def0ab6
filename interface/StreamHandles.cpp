#include "interface/StreamHandles.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace android {

namespace {

// Longer than a write may wait, so that a writer's next call is refused. Not for ever: another
// object may get the address.
constexpr nsecs_t kGoneNs = 3'000'000'000;

}  // namespace

void StreamHandles::reserve() {
    size_t count = 0;
    {
        const std::shared_lock<std::shared_mutex> lock(mLock);
        count = mLive.size() + 1;  // nobody else adds meanwhile
        if (count <= mCapacity) {
            return;
        }
    }
    Vector<sp<AudioStream>> roomier;  // the former one is freed after the lock is released
    roomier.setCapacity(count * 2);
    const std::lock_guard<std::shared_mutex> lock(mLock);
    for (const sp<AudioStream>& stream : mLive) {
        roomier.add(stream);
    }
    std::swap(mLive, roomier);
    mCapacity = count * 2;
}

void StreamHandles::add(const sp<AudioStream>& stream) {
    const audio_proxy_stream_t* const handle = stream.get();
    const std::lock_guard<std::shared_mutex> lock(mLock);
    std::replace_if(
        mGone.begin(), mGone.end(), [handle](const Gone& gone) { return gone.handle == handle; },
        Gone{});
    mLive.add(stream);
}

StreamHandles::Found StreamHandles::find(const audio_proxy_stream_t* handle) {
    const std::shared_lock<std::shared_mutex> lock(mLock);
    return find_l(handle);
}

StreamHandles::Found StreamHandles::find_l(const audio_proxy_stream_t* handle) const {
    for (const sp<AudioStream>& stream : mLive) {
        if (stream.get() == handle) {
            return {Kind::kLive, stream};
        }
    }
    const nsecs_t sinceNs = systemTime(SYSTEM_TIME_MONOTONIC) - kGoneNs;
    const bool isGone = std::any_of(mGone.begin(), mGone.end(), [=](const Gone& gone) {
        return gone.handle == handle && gone.atNs > sinceNs;
    });
    return {isGone ? Kind::kGone : Kind::kForeign, nullptr};
}

StreamHandles::Found StreamHandles::remove(const audio_proxy_stream_t* handle) {
    const std::lock_guard<std::shared_mutex> lock(mLock);
    Found found = find_l(handle);
    if (found.kind == Kind::kLive) {
        mLive.removeAt(static_cast<size_t>(std::find(mLive.begin(), mLive.end(), found.stream) -
                                           mLive.begin()));
        remember_l(handle);
    }
    return found;
}

Vector<sp<AudioStream>> StreamHandles::removeAll() {
    Vector<sp<AudioStream>> all;
    const std::lock_guard<std::shared_mutex> lock(mLock);
    std::swap(all, mLive);
    mCapacity = 0;
    for (const sp<AudioStream>& stream : all) {
        remember_l(stream.get());
    }
    return all;
}

bool StreamHandles::isUsable() {
    const std::unique_lock<std::shared_mutex> lock(mLock, std::try_to_lock);
    return lock.owns_lock();
}

void StreamHandles::remember_l(const audio_proxy_stream_t* gone) {
    mGone[mNextGone] = {gone, systemTime(SYSTEM_TIME_MONOTONIC)};
    mNextGone = (mNextGone + 1) % mGone.size();
}

}  // namespace android
