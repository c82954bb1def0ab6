#include "tools/burst/BurstScanner.h"

#include <algorithm>
#include <functional>
#include <new>

#include "hwsync/HwSyncHeaderV1.h"

namespace android {

/** The header that the library reads, with an eye on where its bytes come from. */
class BurstScanner::TracedHeader : public HwSyncHeaderV2 {
public:
    explicit TracedHeader(BurstScanner& scanner)
        : mScanner(scanner), mVersionOne(new HwSyncHeaderV1) {}

    // Asked once for each place where a header is searched.
    bool isHwSyncHeader(const char* bytes) const override {
        mScanner.mVersionOneCount += mVersionOne->isHwSyncHeader(bytes) ? 1u : 0u;
        return HwSyncHeaderV2::isHwSyncHeader(bytes);
    }

    int parse(void* data, unsigned long byteCount) override {
        const uint64_t offset = mScanner.offsetOf(data, byteCount);
        if (mReceivedSize == 0) {
            mScanner.beginHeader(offset);
            mPayloadOffset = 0;
        }
        const uint32_t begin = mReceivedSize;
        const int taken = HwSyncHeaderV2::parse(data, byteCount);
        const auto* bytes = static_cast<const uint8_t*>(data);
        for (uint32_t at = std::max(begin, kFieldBegin); at < std::min(mReceivedSize, kFieldEnd);
             ++at) {
            mPayloadOffset = mPayloadOffset << 8 | bytes[at - begin];
        }
        return taken;
    }

    uint32_t payloadOffset() const { return mPayloadOffset; }

private:
    static constexpr uint32_t kFieldBegin = 16;
    static constexpr uint32_t kFieldEnd = 20;

    BurstScanner& mScanner;
    const sp<HwSyncHeaderV1> mVersionOne;
    uint32_t mPayloadOffset = 0;
};

class BurstScanner::Listener : public HwSyncBurstObserver {
public:
    explicit Listener(BurstScanner& scanner) : mScanner(scanner) {}

    int onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int burstByteCount,
                            unsigned long ptsNs) override {
        const TracedHeader& header = *mScanner.mHeader;
        const Burst burst = {.index = mScanner.mBurstCount++,
                             .offset = mScanner.mHeaderOffset,
                             .headerByteCount = header.mReceivedSize,
                             .payloadOffset = header.payloadOffset(),
                             .payloadByteCount = burstByteCount,
                             .ptsNs = ptsNs,
                             .mode = mode};
        mScanner.mIsInHeader = false;
        mScanner.mSearchOffset = burst.headerEnd();
        mScanner.mDueByteCount = burst.usedPayloadByteCount();
        mScanner.mSink.onBurst(burst);
        return 0;
    }

    int onBurstPayloadParsed(const void* /*data*/, unsigned long byteCount) override {
        mScanner.mSearchOffset += byteCount;
        mScanner.mDueByteCount -= byteCount;
        return 0;
    }

private:
    BurstScanner& mScanner;
};

BurstScanner::BurstScanner(BurstSink& sink)
    : mSink(sink), mHeader(new TracedHeader(*this)), mParser(new HwSyncBurstParser(mHeader)) {
    if (mParser->registerObserver(new Listener(*this)) != 0) {
        throw std::bad_alloc();
    }
}

BurstScanner::~BurstScanner() = default;

void BurstScanner::feed(const void* data, size_t byteCount) {
    mData = static_cast<const uint8_t*>(data);
    mDataOffset = mEndOffset;
    mEndOffset += byteCount;
    mParser->parse(data, byteCount);
}

void BurstScanner::finish() {
    if (!mIsInHeader && mSearchOffset < mEndOffset) {
        mSink.onGarbage(mSearchOffset, mEndOffset - mSearchOffset);
        mSearchOffset = mEndOffset;
    }
}

uint64_t BurstScanner::offsetOf(const void* data, size_t byteCount) const {
    const auto* bytes = static_cast<const uint8_t*>(data);
    const uint8_t* end = mData + (mEndOffset - mDataOffset);
    const bool isInWrite = !std::less<>()(bytes, mData) && std::less<>()(bytes, end);
    return isInWrite ? mDataOffset + static_cast<uint64_t>(bytes - mData) : mDataOffset - byteCount;
}

void BurstScanner::beginHeader(uint64_t offset) {
    if (mSearchOffset < offset) {
        mSink.onGarbage(mSearchOffset, offset - mSearchOffset);
    }
    mHeaderOffset = offset;
    mIsInHeader = true;
}

}  // namespace android
