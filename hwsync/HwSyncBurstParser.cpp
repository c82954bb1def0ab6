#include "hwsync/HwSyncBurstParser.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "android/log.h"

namespace android {

namespace {

constexpr const char* kTag = "hwsync_parser";

}  // namespace

HwSyncBurstParser::HwSyncBurstParser(const sp<HwSyncHeaderBase>& header) : mHeader(header) {}

HwSyncBurstParser::~HwSyncBurstParser() = default;

int HwSyncBurstParser::registerObserver(const sp<HwSyncBurstObserver>& observer) try {
    if (observer == nullptr) {
        return -EINVAL;
    }
    const ParserLock::Autolock lock(mLock);
    if (std::find(mObservers.begin(), mObservers.end(), observer) == mObservers.end()) {
        mObservers.add(observer);
    }
    return 0;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int HwSyncBurstParser::unregisterObserver(const sp<HwSyncBurstObserver>& observer) {
    if (observer == nullptr) {
        return -EINVAL;
    }
    const ParserLock::Autolock lock(mLock);
    const auto found = std::find(mObservers.begin(), mObservers.end(), observer);
    if (found == mObservers.end()) {
        return -EINVAL;
    }
    mObservers.removeAt(static_cast<size_t>(found - mObservers.begin()));
    return 0;
}

int HwSyncBurstParser::parse(const void* data, unsigned long byteCount) {
    // Only read: the steps share the signature of the header's parse().
    auto* position = static_cast<char*>(const_cast<void*>(data));
    int remaining = static_cast<int>(byteCount);
    int total = 0;
    while (remaining > 0) {
        if (mResetRequested.load(std::memory_order_relaxed)) {
            mResetRequested.store(false, std::memory_order_relaxed);
            endBurst();
        }
        const int consumed = parse_l(position, static_cast<unsigned long>(remaining));
        if (consumed < 0) {
            total = consumed;
            break;
        }
        position += consumed;
        total += consumed;
        remaining -= consumed;
    }
    if (total < 0 || static_cast<unsigned long>(total) != byteCount) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s,  parsed burst size is %d, not equal to original %u", __func__,
                            total, static_cast<unsigned int>(byteCount));
    }
    return total;
}

void HwSyncBurstParser::reset() {
    mResetRequested.store(true, std::memory_order_relaxed);
}

int HwSyncBurstParser::parse_l(void* data, unsigned long byteCount) {
    if (data == nullptr) {
        return -EINVAL;
    }
    switch (mState) {
        case STATE_FIND_HEADER:
            return findHeader(data, byteCount);
        case STATE_READ_HEADER:
            if (!mHeader->isHeaderEnded()) {
                return parseHeader_l(data, byteCount);
            }
            mState = STATE_READ_BODY;
            return 0;
        case STATE_READ_BODY:
            if (!isBodyEnd_l()) {
                return parseBody_l(data, byteCount);
            }
            endBurst();
            return 0;
        default:
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Unrecognized state %d", __func__,
                                static_cast<int>(mState));
            mState = STATE_FIND_HEADER;
            return 0;
    }
}

int HwSyncBurstParser::findHeader(void* data, unsigned long byteCount) {
    const auto* bytes = static_cast<const char*>(data);
    char window[HwSyncHeldBytes::kWindowByteCount];
    const size_t windowByteCount = mHeldBytes.peek(bytes, byteCount, window);
    if (windowByteCount < sizeof(window)) {
        if (mHeader->mayBeginHwSyncHeader(window, windowByteCount)) {
            mHeldBytes.append(bytes, byteCount);
            return static_cast<int>(byteCount);
        }
    } else if (mHeader->isHwSyncHeader(window)) {
        mState = STATE_READ_HEADER;
        if (!mHeldBytes.isEmpty()) {
            (void)mHeader->parse(mHeldBytes.data(), mHeldBytes.byteCount());
            mHeldBytes.clear();
        }
        const int consumed = parseHeader_l(data, byteCount);
        stopRecordGarbage();
        return consumed;
    }
    startRecordGarbage(1);
    // A held byte counted as consumed in the write that brought it.
    return mHeldBytes.dropFirst() ? 0 : 1;
}

int HwSyncBurstParser::parseHeader_l(void* data, unsigned long byteCount) {
    const int consumed = mHeader->parse(data, byteCount);
    if (mHeader->isHeaderEnded()) {
        announceHeader();
    }
    return consumed;
}

void HwSyncBurstParser::announceHeader() {
    const ParserLock::Autolock lock(mLock);
    mBurstSize = mHeader->mBurstSize;
    for (const sp<HwSyncBurstObserver>& observer : mObservers) {
        observer->onBurstHeaderParsed(mHeader->mMode, mHeader->mBurstSize, mHeader->mTimestamp);
    }
}

int HwSyncBurstParser::parseBody_l(void* data, unsigned long byteCount) {
    const auto available = static_cast<uint64_t>(getAvailableBufferLength_l());
    if (available == 0) {
        // The end of the burst is unknown: search for the magic of the next header.
        endBurst();
        return 0;
    }
    const uint64_t delivered = std::min<uint64_t>(byteCount, available);
    const ParserLock::Autolock lock(mLock);
    for (const sp<HwSyncBurstObserver>& observer : mObservers) {
        observer->onBurstPayloadParsed(data, delivered);
    }
    mPayloadLength += delivered;
    return static_cast<int>(delivered);
}

int64_t HwSyncBurstParser::getAvailableBufferLength_l() const {
    if (mBurstSize == 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, Hw Sync burst size is not acquired yet",
                            __func__);
        return 0;
    }
    const auto available = static_cast<int32_t>(mBurstSize - mPayloadLength);
    if (available < 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, abnormal burst length, mBurstSize %d, mPayloadLength %d", __func__,
                            static_cast<int>(mBurstSize), static_cast<int>(mPayloadLength));
        return 0;
    }
    return available;
}

void HwSyncBurstParser::endBurst() {
    mState = STATE_FIND_HEADER;
    mHeader->reset();
    mHeldBytes.clear();
    resetBody_l();
}

void HwSyncBurstParser::resetBody_l() {
    mBurstSize = 0;
    mPayloadLength = 0;
}

void HwSyncBurstParser::startRecordGarbage(unsigned long byteCount) {
    if (mGarbageSize == 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "%s, garbage data is received", __func__);
    }
    mGarbageSize += byteCount;
}

void HwSyncBurstParser::stopRecordGarbage() {
    if (mGarbageSize != 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s, parser is back to normal, totally %d garbage bytes are received",
                            __func__, static_cast<int>(mGarbageSize));
    }
    mGarbageSize = 0;
}

}  // namespace android
