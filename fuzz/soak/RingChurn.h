#pragma once

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "buffer/FrameBuffer.h"
#include "fuzz/soak/SoakCheck.h"

/**
 * A producer and a consumer thread that push numbered frames through one ring in every way, from
 * positions just before a wrap. Ends with the object.
 */
class RingChurn {
public:
    RingChurn(size_t frameCount, bool powerOfTwo, size_t position, uint32_t seed,
              SoakLedger& ledger)
        : mRing(new android::FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                         frameCount, powerOfTwo, position, position)),
          mLedger(ledger),
          mProducer([this, seed] { produce(seed); }),
          mConsumer([this, seed] { consume(seed + 1); }) {}
    ~RingChurn() {
        mStop = true;
        mProducer.join();
        mConsumer.join();
        const size_t held = mRing->availableToRead();
        // After a flush only the next frame shows how many went with it.
        const bool isKnown = !mFlushed;
        if (mRead + held > mWritten || (isKnown && mRead + held != mWritten)) {
            soakFail("ring: %zu frames written, %zu read, %zu held", static_cast<size_t>(mWritten),
                     static_cast<size_t>(mRead), held);
        }
    }
    RingChurn(const RingChurn&) = delete;
    RingChurn& operator=(const RingChurn&) = delete;

private:
    void produce(uint32_t seed) {
        std::mt19937 random(seed);
        std::vector<uint32_t> frames(64);
        while (!mStop) {
            const size_t wanted = 1 + random() % frames.size();
            size_t moved = 0;
            if (random() % 2 == 0) {
                for (size_t i = 0; i < wanted; ++i) {
                    frames[i] = static_cast<uint32_t>(mWritten + i);
                }
                moved = static_cast<size_t>(mRing->write(frames.data(), wanted));
            } else {
                void* region = nullptr;
                moved = wanted;
                if (mRing->obtainWriteBuffer(&region, moved) != 0) {
                    moved = 0;
                }
                for (size_t i = 0; i < moved; ++i) {
                    static_cast<uint32_t*>(region)[i] = static_cast<uint32_t>(mWritten + i);
                }
                mRing->releaseWriteBuffer(region, moved);
            }
            mWritten += moved;
            breathe(moved);
        }
    }

    void consume(uint32_t seed) {
        std::mt19937 random(seed);
        std::vector<uint32_t> frames(64);
        while (!mStop) {
            const size_t wanted = 1 + random() % frames.size();
            size_t moved = 0;
            void* region = nullptr;
            android::AudioBufferProvider::Buffer provided;
            const auto choice = random() % 64;
            if (choice == 0) {
                flush();
            } else if (choice < 20) {
                moved = static_cast<size_t>(mRing->read(frames.data(), wanted));
                check(frames.data(), moved);
            } else if (choice < 40) {
                moved = wanted;
                mRing->obtainReadBuffer(&region, moved);
                check(static_cast<uint32_t*>(region), moved);
                mRing->releaseReadBuffer(region, moved);
            } else {
                provided.frameCount = wanted;
                mRing->getNextBuffer(&provided, 0);
                moved = provided.frameCount;
                check(static_cast<uint32_t*>(provided.raw), moved);
                mRing->releaseBuffer(&provided);
            }
            breathe(moved);
        }
    }

    void check(const uint32_t* frames, size_t frameCount) {
        if (frameCount > 0 && mFlushed) {
            mRead += frames[0] - static_cast<uint32_t>(mRead);
            mFlushed = false;
        }
        for (size_t i = 0; i < frameCount; ++i) {
            if (frames[i] != static_cast<uint32_t>(mRead + i)) {
                soakFail("ring: frame %u where %u is due", frames[i],
                         static_cast<uint32_t>(mRead + i));
            }
        }
        mRead += frameCount;
    }

    // At least the held frames go; the next frame's number tells how many.
    void flush() {
        const size_t held = mRing->availableToRead();
        mRing->flush();
        mRead += held;
        mFlushed = true;
    }

    void breathe(size_t moved) {
        mLedger.steps.fetch_add(1, std::memory_order_relaxed);
        if (moved == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    }

    const android::sp<android::FrameBuffer> mRing;
    SoakLedger& mLedger;
    std::atomic<bool> mStop{false};
    uint64_t mWritten = 0;  // producer
    uint64_t mRead = 0;     // consumer
    bool mFlushed = false;
    std::thread mProducer;
    std::thread mConsumer;
};
