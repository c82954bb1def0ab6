#include "buffer/FrameBuffer.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <random>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

// Random operations on a ring of numbered frames beside a plain queue.
class RingAgainstModel {
public:
    RingAgainstModel(size_t capacity, bool powerOfTwo, uint32_t position)
        : mRing(new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, capacity,
                                powerOfTwo, position, position)),
          mCapacity(mRing->availableToWrite()),
          mRead(position) {}

    void step() {
        const size_t wanted = 1 + mRandom() % (mCapacity + 2);
        if (mRandom() % 2 == 0) {
            put(wanted, mRandom() % 2 == 0);
        } else {
            take(wanted, mRandom() % 9);
        }
        size_t readCount = 0;
        size_t writtenCount = 0;
        ASSERT_EQ(OK, mRing->statistics(readCount, writtenCount));
        ASSERT_EQ(signedCount(mRead), readCount);
        ASSERT_EQ(signedCount(mRead + mModel.size()), writtenCount);
        ASSERT_EQ(mModel.size(), mRing->availableToRead());
        ASSERT_EQ(mCapacity - mModel.size(), mRing->availableToWrite());
    }

private:
    static size_t signedCount(uint64_t position) {
        return static_cast<size_t>(int64_t{static_cast<int32_t>(position)});
    }
    void put(size_t wanted, bool inPlace) {
        const size_t room = std::min(wanted, mCapacity - mModel.size());
        const std::vector<uint32_t> frames = numberedFrames(mNext, wanted);
        size_t used = room;
        void* region = nullptr;
        if (!inPlace) {
            ASSERT_EQ(static_cast<int32_t>(room), mRing->write(frames.data(), wanted));
        } else if (room == 0) {
            ASSERT_EQ(-EAGAIN, mRing->obtainWriteBuffer(&region, wanted));
        } else {
            ASSERT_EQ(OK, mRing->obtainWriteBuffer(&region, wanted));
            ASSERT_EQ(std::min(room, toEnd(mRead + mModel.size())), wanted);
            used = mRandom() % (wanted + 1);
            std::copy_n(frames.data(), used, static_cast<uint32_t*>(region));
            ASSERT_EQ(OK, mRing->releaseWriteBuffer(region, used));
        }
        mModel.insert(mModel.end(), frames.data(), frames.data() + used);
        mNext += static_cast<uint32_t>(used);
    }
    void take(size_t wanted, size_t how) {
        const size_t held = std::min(wanted, mModel.size());
        const size_t span = std::min(held, toEnd(mRead));
        size_t used = held;
        void* region = nullptr;
        if (how < 3) {
            std::vector<uint32_t> frames(wanted);
            ASSERT_EQ(static_cast<int32_t>(held), mRing->read(frames.data(), wanted));
            expectFrames(0, frames.data(), held);
        } else if (how < 5) {
            ASSERT_EQ(OK, mRing->obtainReadBuffer(&region, wanted));
            ASSERT_EQ(span, wanted);
            expectFrames(0, region, span);
            used = mRandom() % (span + 1);
            ASSERT_EQ(OK, mRing->releaseReadBuffer(region, used));
        } else if (how < 7) {
            FrameBuffer::Buffer record = {.raw = nullptr, .frameCount = wanted};
            ASSERT_EQ(held == 0 ? -ENODATA : OK, mRing->getNextBuffer(&record, 0));
            ASSERT_EQ(span, record.frameCount);
            expectFrames(0, record.raw, span);
            used = record.frameCount = mRandom() % (span + 1);
            mRing->releaseBuffer(&record);
            ASSERT_EQ(nullptr, record.raw);
        } else if (how < 8) {
            void* second = nullptr;
            size_t rest = 0;
            ASSERT_EQ(held == 0 ? -ENODATA : OK,
                      mRing->getPartialPosition(held, true, region, wanted, second, rest));
            if (held > 0) {
                ASSERT_EQ(span, wanted);
                ASSERT_EQ(held - span, rest);
                expectFrames(0, region, span);
                expectFrames(span, second, rest);
            }
            mRing->updateReadPosition(held);
        } else {
            used = mModel.size();
            ASSERT_EQ(OK, mRing->flush());
        }
        mModel.erase(mModel.begin(), mModel.begin() + static_cast<ptrdiff_t>(used));
        mRead += used;
    }
    size_t toEnd(uint64_t position) const { return mCapacity - position % mCapacity; }
    void expectFrames(size_t first, const void* frames, size_t frameCount) {
        for (size_t i = 0; i < frameCount; ++i) {
            ASSERT_EQ(mModel[first + i], static_cast<const uint32_t*>(frames)[i]);
        }
    }

    std::minstd_rand mRandom{17};
    sp<FrameBuffer> mRing;
    const size_t mCapacity;
    uint64_t mRead;
    std::deque<uint32_t> mModel;
    uint32_t mNext = 1;
};

TEST(FrameBuffer, BehavesLikeAQueueAcrossEveryWrapOfStorageAndPositions) {
    for (const uint32_t position : {0U, 0x7FFFFFF8U, 0xFFFFFFF8U}) {
        for (size_t capacity = 1; capacity <= 9; ++capacity) {
            RingAgainstModel ring(capacity, capacity % 3 == 0, position);
            for (int i = 0; i < 2000 && !testing::Test::HasFailure(); ++i) {
                ring.step();
            }
        }
    }
}

TEST(FrameBuffer, CountsByIndicesWherePositionsAreOutOfOrder) {
    struct Case {
        size_t read, write, held, free;
    };
    // Read past written, level, and written further ahead than the ring is long.
    for (const Case& at : {Case{5, 3, 0, 2}, Case{8, 3, 0, 5}, Case{9, 9, 0, 8}, Case{0, 20, 4, 0},
                           Case{6, 17, 3, 0}, Case{3, 19, 8, 0}}) {
        const sp<FrameBuffer> buffer(new FrameBuffer(
            AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 8, false, at.read, at.write));
        EXPECT_EQ(at.held, buffer->availableToRead()) << at.read << " " << at.write;
        EXPECT_EQ(at.free, buffer->availableToWrite()) << at.read << " " << at.write;
    }
}

TEST(FrameBuffer, ModeGatesHandOutsAndNothingElse) {
    const auto ring = makeBuffer(4);
    ring->disallow(FRAME_BUFFER_ALL);
    void* region = nullptr;
    size_t frameCount = 4;
    EXPECT_EQ(-ENOSYS, ring->obtainWriteBuffer(&region, frameCount));
    EXPECT_EQ(-ENOSYS, ring->releaseWriteBuffer(region, 1));
    EXPECT_EQ(-ENOSYS, ring->obtainReadBuffer(&region, frameCount));
    EXPECT_EQ(-ENOSYS, ring->releaseReadBuffer(region, 1));
    uint32_t frame = 9;
    EXPECT_EQ(1, ring->write(&frame, 1));
    EXPECT_EQ(1, ring->read(&frame, 1));

    // Successive adders get the same region while commits are off.
    ring->reset();
    ring->allow(FRAME_BUFFER_ALL);
    ring->disallow(FRAME_BUFFER_RELEASE_WRITE);
    void* again = nullptr;
    ring->obtainWriteBuffer(&region, frameCount);
    ring->releaseWriteBuffer(region, 3);
    ring->obtainWriteBuffer(&again, frameCount);
    EXPECT_EQ(region, again);
}

TEST(FrameBuffer, ClampsAReleaseOfMoreThanThereIs) {
    LogCapture log;
    const auto ring = makeBuffer(4);
    EXPECT_EQ(OK, ring->releaseWriteBuffer(nullptr, 6));
    EXPECT_EQ(4U, ring->availableToRead());
    EXPECT_EQ(OK, ring->releaseReadBuffer(nullptr, 5));
    EXPECT_EQ((std::vector<std::string>{
                  "W frame_buffer: releaseWriteBuffer, Try to release 6 bytes, but actual 4 bytes "
                  "available to release",
                  "W frame_buffer: releaseReadBuffer, Try to release 5 bytes, but actual 4 bytes "
                  "available to release"}),
              log.messages());
}

TEST(FrameBuffer, WithoutStorageRefusesEverything) {
    constexpr size_t kHuge = std::numeric_limits<size_t>::max() / 2;
    constexpr uint32_t kNoChannels = 0x40000003;
    for (const sp<FrameBuffer>& ring :
         {makeBuffer(0), makeBuffer(kHuge), makeBuffer(8, AUDIO_FORMAT_DEFAULT),
          makeBuffer(8, AUDIO_FORMAT_PCM_16_BIT, kNoChannels),
          sp<FrameBuffer>(new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, 3, 0x80000001, true, 0, 0))}) {
        uint32_t frame = 0;
        void* region = nullptr;
        size_t count = 1;
        EXPECT_FALSE(ring->validate());
        EXPECT_EQ(-ENODEV, ring->write(&frame, 1));
        EXPECT_EQ(-ENODEV, ring->read(&frame, 1));
        EXPECT_EQ(-ENODEV, ring->obtainWriteBuffer(&region, count));
        EXPECT_EQ(-ENODEV, ring->obtainReadBuffer(&region, count));
        EXPECT_EQ(-ENODEV, ring->flush());
        EXPECT_EQ(-ENODEV, ring->statistics(count, count));
        EXPECT_EQ(-ENODEV, ring->getPartialPosition(1, true, region, count, region, count));
        AudioBufferProvider::Buffer buffer = {};
        EXPECT_EQ(-ENODEV, ring->getNextBuffer(&buffer, 0));
        EXPECT_EQ(0U, ring->availableToRead());
        ring->reset();
    }
}

TEST(FrameBuffer, RefusesToCopyNothingAndToHandOutNowhere) {
    const auto ring = makeBuffer(4);
    uint32_t frame = 7;
    size_t count = 1;
    ring->write(&frame, 1);
    EXPECT_EQ(-EINVAL, ring->write(nullptr, 1));
    EXPECT_EQ(-EINVAL, ring->write(&frame, 0));
    EXPECT_EQ(-EINVAL, ring->read(nullptr, 1));
    EXPECT_EQ(-EINVAL, ring->read(&frame, 0));
    EXPECT_EQ(-EINVAL, ring->obtainWriteBuffer(nullptr, count));
    EXPECT_EQ(-EINVAL, ring->obtainReadBuffer(nullptr, count));
    EXPECT_EQ(-EINVAL, ring->getNextBuffer(nullptr, 0));
    ring->releaseBuffer(nullptr);
    EXPECT_EQ(1U, ring->availableToRead());
    EXPECT_FALSE(ring->match(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO));

    void* region = nullptr;
    ring->write(numberedFrames(1, 3).data(), 3);
    EXPECT_EQ(-EAGAIN, ring->getPartialPosition(1, false, region, count, region, count));
    ring->flush();
    EXPECT_EQ(-ENODATA, ring->getPartialPosition(1, true, region, count, region, count));
    EXPECT_EQ(OK, ring->getPartialPosition(9, false, region, count, region, count));
}

TEST(FrameBuffer, AskedForNoFramesSaysWhereTheNextOnesAre) {
    const auto ring = makeBuffer(4);
    void* start = nullptr;
    void* region = &start;
    size_t frameCount = 0;
    ring->obtainWriteBuffer(&start, frameCount);
    EXPECT_EQ(OK, ring->obtainReadBuffer(&region, frameCount));
    EXPECT_EQ(&start, region) << "nothing is held";
    ring->write(numberedFrames(1, 3).data(), 3);
    ring->releaseReadBuffer(nullptr, 1);

    EXPECT_EQ(OK, ring->obtainReadBuffer(&region, frameCount));
    EXPECT_EQ(static_cast<uint32_t*>(start) + 1, region);
    AudioBufferProvider::Buffer record = {};
    EXPECT_EQ(OK, ring->getNextBuffer(&record, 0));
    EXPECT_EQ(region, record.raw);
    EXPECT_EQ(OK, ring->obtainWriteBuffer(&region, frameCount));
    EXPECT_EQ(static_cast<uint32_t*>(start) + 3, region);
    EXPECT_EQ(0U, frameCount + record.frameCount);
}

TEST(FrameBuffer, FlushZeroesWhatItDiscardsAndNothingMore) {
    const auto ring = makeBuffer(4);
    ring->write(numberedFrames(1, 4).data(), 4);
    ring->flush();
    void* region = nullptr;
    size_t frameCount = 4;
    ring->obtainWriteBuffer(&region, frameCount);
    const auto* frames = static_cast<uint32_t*>(region);
    EXPECT_EQ(std::vector<uint32_t>(4), std::vector<uint32_t>(frames, frames + frameCount));

    const auto absurd = makeBuffer(size_t{1} << 31);  // 8 GiB of addresses
    if (!absurd->validate()) {
        GTEST_SKIP() << "this system refuses the addresses";
    }
    EXPECT_EQ(1, absurd->write(&frameCount, 1));
    EXPECT_EQ(OK, absurd->flush());  // would take seconds, and the memory, if it zeroed the whole
}

}  // namespace
