#include "buffer/FrameBuffer.h"

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <random>
#include <thread>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

using FrameVector = std::vector<uint32_t>;

/** Runs random operations on a ring of numbered frames beside a plain queue. */
class RingAgainstModel {
public:
    RingAgainstModel(size_t capacity, bool powerOfTwo, size_t position, unsigned seed)
        : mRandom(seed),
          mRing(new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, capacity,
                                powerOfTwo, position, position)),
          mCapacity(mRing->availableToWrite()) {}

    void step() {
        const size_t wanted = 1 + mRandom() % (mCapacity + 2);
        switch (mRandom() % 8) {
            case 0:
            case 1:
                return write(wanted);
            case 2:
                return writeInPlace(wanted);
            case 3:
            case 4:
                return read(wanted);
            case 5:
                return readInPlace(wanted);
            case 6:
                return provide(wanted);
            default:
                if (mRandom() % 4 == 0) {
                    EXPECT_EQ(OK, mRing->flush());
                    mModel.clear();
                }
        }
    }

    void check() {
        ASSERT_EQ(mModel.size(), mRing->availableToRead());
        ASSERT_EQ(mCapacity - mModel.size(), mRing->availableToWrite());
    }

private:
    void write(size_t wanted) {
        const FrameVector frames = numberedFrames(mNext, wanted);
        const int32_t written = mRing->write(frames.data(), wanted);
        EXPECT_EQ(static_cast<int32_t>(std::min(wanted, mCapacity - mModel.size())), written);
        accept(static_cast<size_t>(written));
    }
    void writeInPlace(size_t wanted) {
        void* region = nullptr;
        size_t frameCount = wanted;
        const status_t status = mRing->obtainWriteBuffer(&region, frameCount);
        ASSERT_EQ(mModel.size() == mCapacity ? -EAGAIN : OK, status);
        if (status != OK) {
            return;
        }
        ASSERT_GE(frameCount, 1U);
        ASSERT_LE(frameCount, std::min(wanted, mCapacity - mModel.size()));
        const size_t used = mRandom() % (frameCount + 1);
        const FrameVector frames = numberedFrames(mNext, used);
        std::copy(frames.begin(), frames.end(), static_cast<uint32_t*>(region));
        EXPECT_EQ(OK, mRing->releaseWriteBuffer(region, used));
        accept(used);
    }
    void accept(size_t frameCount) {
        for (size_t i = 0; i < frameCount; ++i) {
            mModel.push_back(mNext++);
        }
    }
    void read(size_t wanted) {
        FrameVector frames(wanted);
        const int32_t count = mRing->read(frames.data(), wanted);
        ASSERT_EQ(static_cast<int32_t>(std::min(wanted, mModel.size())), count);
        expectFront(frames.data(), static_cast<size_t>(count), static_cast<size_t>(count));
    }
    void readInPlace(size_t wanted) {
        void* region = nullptr;
        size_t frameCount = wanted;
        ASSERT_EQ(OK, mRing->obtainReadBuffer(&region, frameCount));
        ASSERT_EQ(mModel.empty(), frameCount == 0);
        const size_t used = mRandom() % (frameCount + 1);
        EXPECT_EQ(OK, mRing->releaseReadBuffer(region, used));
        expectFront(static_cast<uint32_t*>(region), frameCount, used);
    }
    void provide(size_t wanted) {
        FrameBuffer::Buffer record = {.raw = nullptr, .frameCount = wanted};
        ASSERT_EQ(mModel.empty() ? -ENODATA : OK, mRing->getNextBuffer(&record, 0));
        const auto* frames = static_cast<uint32_t*>(record.raw);
        const size_t handedOut = record.frameCount;
        record.frameCount = mRandom() % (handedOut + 1);
        const size_t used = record.frameCount;
        mRing->releaseBuffer(&record);
        EXPECT_EQ(nullptr, record.raw);
        EXPECT_EQ(0U, record.frameCount);
        expectFront(frames, handedOut, used);
    }
    void expectFront(const uint32_t* frames, size_t frameCount, size_t used) {
        for (size_t i = 0; i < frameCount; ++i) {
            ASSERT_EQ(mModel[i], frames[i]);
        }
        mModel.erase(mModel.begin(), mModel.begin() + static_cast<ptrdiff_t>(used));
    }

    std::minstd_rand mRandom;
    sp<FrameBuffer> mRing;
    const size_t mCapacity;
    std::deque<uint32_t> mModel;
    uint32_t mNext = 1;
};

TEST(FrameBuffer, BehavesLikeAQueueAcrossEveryWrapOfStorageAndPositions) {
    for (const size_t position : {size_t{0}, size_t{0x7FFFFFF8}, size_t{0xFFFFFFF8}}) {
        for (size_t capacity = 1; capacity <= 9; ++capacity) {
            RingAgainstModel ring(capacity, capacity % 3 == 0, position, 17);
            for (int i = 0; i < 2000 && !testing::Test::HasFailure(); ++i) {
                ring.step();
                ring.check();
            }
        }
    }
}

TEST(FrameBuffer, ReportsPositionsAsSigned32BitCounts) {
    const auto ring = makeBuffer(8, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 0x7FFFFFFE);
    ring->write(numberedFrames(0, 8).data(), 5);
    size_t readCount = 0;
    size_t writtenCount = 0;
    ASSERT_EQ(OK, ring->statistics(readCount, writtenCount));
    EXPECT_EQ(0x7FFFFFFEU, readCount);
    EXPECT_EQ(static_cast<size_t>(INT64_C(-0x7FFFFFFD)), writtenCount);
    ring->flush();
    ASSERT_EQ(OK, ring->statistics(readCount, writtenCount));
    EXPECT_EQ(readCount, writtenCount);
    ring->reset();
    ASSERT_EQ(OK, ring->statistics(readCount, writtenCount));
    EXPECT_EQ(0U, readCount);
    EXPECT_EQ(0U, writtenCount);
}

TEST(FrameBuffer, HandsOutTwoSpansAroundTheEndOfStorage) {
    const auto ring = makeBuffer(10, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 7);
    void* first = nullptr;
    void* second = nullptr;
    size_t firstCount = 0;
    size_t secondCount = 0;
    EXPECT_EQ(-ENODATA, ring->getPartialPosition(4, true, first, firstCount, second, secondCount));
    ASSERT_EQ(OK, ring->getPartialPosition(5, false, first, firstCount, second, secondCount));
    EXPECT_EQ(3U, firstCount);
    EXPECT_EQ(2U, secondCount);
    EXPECT_EQ(static_cast<uint8_t*>(second) + 7 * 4, first);
    ring->write(numberedFrames(0, 10).data(), 10);
    EXPECT_EQ(-EAGAIN, ring->getPartialPosition(1, false, first, firstCount, second, secondCount));
    ASSERT_EQ(OK, ring->getPartialPosition(9, true, first, firstCount, second, secondCount));
    EXPECT_EQ(3U, firstCount);
    EXPECT_EQ(6U, secondCount);
}

TEST(FrameBuffer, ModeGatesHandOutsAndNothingElse) {
    const auto ring = makeBuffer(4);
    ring->write(numberedFrames(0, 2).data(), 2);
    ring->disallow(FRAME_BUFFER_ALL);
    void* region = nullptr;
    size_t frameCount = 4;
    EXPECT_EQ(-ENOSYS, ring->obtainWriteBuffer(&region, frameCount));
    EXPECT_EQ(-ENOSYS, ring->releaseWriteBuffer(region, 1));
    EXPECT_EQ(-ENOSYS, ring->obtainReadBuffer(&region, frameCount));
    EXPECT_EQ(-ENOSYS, ring->releaseReadBuffer(region, 1));
    EXPECT_EQ(2U, ring->availableToRead());
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
    FrameBuffer::Buffer record = {.raw = nullptr, .frameCount = 3};
    ring->releaseBuffer(&record);
    const std::string tail = " bytes available to release";
    EXPECT_EQ((std::vector<std::string>{
                  "W frame_buffer: releaseWriteBuffer, Try to release 6 bytes, but actual 4" + tail,
                  "W frame_buffer: releaseReadBuffer, Try to release 5 bytes, but actual 4" + tail,
                  "W frame_buffer: releaseBuffer, Try to release 3 bytes, but actual 0" + tail}),
              log.messages());
}

TEST(FrameBuffer, WithoutStorageRefusesEverything) {
    constexpr size_t kHuge = std::numeric_limits<size_t>::max() / 2;
    constexpr uint32_t kNoChannels = 0x40000003;
    const sp<FrameBuffer> rings[] = {
        makeBuffer(0), makeBuffer(kHuge), makeBuffer(8, AUDIO_FORMAT_DEFAULT),
        makeBuffer(8, AUDIO_FORMAT_PCM_16_BIT, kNoChannels),
        new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, 3, 0x80000001, true, 0, 0)};
    for (const auto& ring : rings) {
        uint32_t frame = 0;
        void* region = nullptr;
        size_t frameCount = 1;
        FrameBuffer::Buffer record = {.raw = nullptr, .frameCount = 1};
        EXPECT_FALSE(ring->validate());
        EXPECT_EQ(-ENODEV, ring->write(&frame, 1));
        EXPECT_EQ(-ENODEV, ring->read(&frame, 1));
        EXPECT_EQ(-ENODEV, ring->obtainWriteBuffer(&region, frameCount));
        EXPECT_EQ(-ENODEV, ring->obtainReadBuffer(&region, frameCount));
        EXPECT_EQ(-ENODEV, ring->getNextBuffer(&record, 0));
        EXPECT_EQ(-ENODEV, ring->flush());
        EXPECT_EQ(-ENODEV,
                  ring->getPartialPosition(1, false, region, frameCount, region, frameCount));
        EXPECT_EQ(0U, ring->availableToRead());
        ring->reset();
    }
    EXPECT_EQ(0U, makeBuffer(0)->availableToWrite());
}

TEST(FrameBuffer, AnAbsurdCapacityCostsOnlyWhatIsWritten) {
    const auto ring = makeBuffer(size_t{1} << 31);  // 8 GiB of addresses
    if (!ring->validate()) {
        GTEST_SKIP() << "this system refuses the addresses";
    }
    uint32_t frame = 5;
    EXPECT_EQ(1, ring->write(&frame, 1));
    EXPECT_EQ(OK, ring->flush());  // would take seconds, and the memory, if it zeroed the whole
}

TEST(FrameBuffer, FlushZeroesWhatItDiscards) {
    const auto ring = makeBuffer(4);
    ring->write(numberedFrames(1, 4).data(), 4);
    ring->flush();
    void* region = nullptr;
    size_t frameCount = 4;
    ring->obtainWriteBuffer(&region, frameCount);
    EXPECT_EQ(FrameVector(4), FrameVector(static_cast<uint32_t*>(region),
                                          static_cast<uint32_t*>(region) + frameCount));
}

TEST(FrameBuffer, TwoThreadsPassEveryFrameOnceInOrder) {
    constexpr uint32_t kFrameCount = 400'000;
    const auto ring = makeBuffer(61, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 0x7FFF0000);
    std::thread producer([&ring] {
        for (uint32_t next = 0; next < kFrameCount;) {
            const size_t wanted = std::min<size_t>(1 + next % 37, kFrameCount - next);
            const int32_t written = ring->write(numberedFrames(next, wanted).data(), wanted);
            next += static_cast<uint32_t>(written);
            if (written == 0) {
                std::this_thread::yield();
            }
        }
    });
    uint32_t expected = 0;
    while (expected < kFrameCount) {
        void* region = nullptr;
        size_t frameCount = 1 + expected % 41;
        ASSERT_EQ(OK, ring->obtainReadBuffer(&region, frameCount));
        for (size_t i = 0; i < frameCount; ++i, ++expected) {
            if (static_cast<uint32_t*>(region)[i] != expected) {
                producer.detach();
                FAIL() << "frame " << expected;
            }
        }
        ring->releaseReadBuffer(region, frameCount);
        if (frameCount == 0) {
            std::this_thread::yield();
        }
    }
    producer.join();
}

}  // namespace
