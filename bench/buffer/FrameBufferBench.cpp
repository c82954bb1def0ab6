// The ring of frames beside two well-known rings and memcpy(): by copy and in place, by one thread
// and by two. A unit is a frame of four bytes that went in and came out.
#include "buffer/FrameBuffer.h"

#include <jack/ringbuffer.h>

#include <algorithm>
#include <atomic>
#include <boost/align/aligned_allocator.hpp>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/buffer/PlainestRing.h"
#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"
#include "bench/support/OneProcessor.h"

namespace {

using android::FrameBuffer;
using android::sp;
// At the start of a cache line, for each contender alike.
using Frames = std::vector<uint32_t, boost::alignment::aligned_allocator<uint32_t, 64>>;

// About four blocks of 20 ms at 48 kHz. All have 16 KiB of storage, so that they wrap alike and the
// copies begin at like offsets in a cache line; the other two leave a piece of it empty.
constexpr size_t kFrames = 4096;

struct FrameBufferRing {
    const sp<FrameBuffer> buffer{
        new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, kFrames, false, 0, 0)};

    size_t write(const uint32_t* frames, size_t count) {
        return static_cast<size_t>(buffer->write(frames, count));
    }
    size_t read(uint32_t* frames, size_t count) {
        return static_cast<size_t>(buffer->read(frames, count));
    }
    /** Where frames lie that are there; how many of them. */
    size_t visit(size_t count) {
        void* region = nullptr;
        buffer->obtainReadBuffer(&region, count);
        benchmark::DoNotOptimize(region);
        buffer->releaseReadBuffer(region, count);
        return count;
    }
};

struct PlainRing {
    const std::unique_ptr<PlainestRing> ring{new PlainestRing(kFrames, sizeof(uint32_t))};

    size_t write(const uint32_t* frames, size_t count) { return ring->write(frames, count); }
    size_t read(uint32_t* frames, size_t count) { return ring->read(frames, count); }
    size_t visit(size_t count) {
        void* region = nullptr;
        count = ring->obtain(&region, count);
        benchmark::DoNotOptimize(region);
        ring->release(count);
        return count;
    }
};

struct BoostRing {
    boost::lockfree::spsc_queue<uint32_t> queue{kFrames - 1};

    size_t write(const uint32_t* frames, size_t count) { return queue.push(frames, count); }
    size_t read(uint32_t* frames, size_t count) { return queue.pop(frames, count); }
};

struct JackRing {
    struct Free {
        void operator()(jack_ringbuffer_t* ring) const { jack_ringbuffer_free(ring); }
    };
    const std::unique_ptr<jack_ringbuffer_t, Free> ring{
        jack_ringbuffer_create(kFrames * sizeof(uint32_t))};

    // It counts bytes, and would take a part of a frame.
    size_t write(const uint32_t* frames, size_t count) {
        const size_t room = jack_ringbuffer_write_space(ring.get()) / sizeof(uint32_t);
        return jack_ringbuffer_write(ring.get(), reinterpret_cast<const char*>(frames),
                                     std::min(count, room) * sizeof(uint32_t)) /
               sizeof(uint32_t);
    }
    size_t read(uint32_t* frames, size_t count) {
        return jack_ringbuffer_read(ring.get(), reinterpret_cast<char*>(frames),
                                    count * sizeof(uint32_t)) /
               sizeof(uint32_t);
    }
};

struct Block {
    explicit Block(size_t count) : in(count), out(count) { std::iota(in.begin(), in.end(), 1U); }
    void check(const std::string& name) const {
        if (in != out) {
            throw std::logic_error(name + " returned other frames");
        }
    }
    Frames in;
    Frames out;
};

template <typename Ring>
void addOneThread(Duel& duel, const std::string& name, size_t count) {
    const auto ring = std::make_shared<Ring>();
    const auto block = std::make_shared<Block>(count);
    const auto run = [ring, block] {
        ring->write(block->in.data(), block->in.size());
        ring->read(block->out.data(), block->out.size());
    };
    run();
    block->check(name);
    duel.add(name, static_cast<double>(count), run);
}

/** Writes by copy as a client does; the frames are read where they lie. */
template <typename Ring>
void addInPlace(Duel& duel, const std::string& name, size_t count) {
    const auto ring = std::make_shared<Ring>();
    const auto block = std::make_shared<Block>(count);
    duel.add(name, static_cast<double>(count), [ring, block] {
        ring->write(block->in.data(), block->in.size());
        for (size_t done = 0; done < block->in.size();) {
            done += ring->visit(block->in.size() - done);
        }
    });
}

/** A reader of its own for as long as the duel lasts, on another processor if there is one. Both sides
 *  spin, and yield when idle; between its runs the reader sleeps, and leaves its processor to the
 *  others'. */
template <typename Ring>
class TwoThreads {
public:
    explicit TwoThreads(size_t count) : mIn(count, 1), mReader([this, count] { readAll(count); }) {}
    ~TwoThreads() {
        mDone = true;
        wakeReader();
        mReader.join();
    }
    TwoThreads(const TwoThreads&) = delete;
    TwoThreads& operator=(const TwoThreads&) = delete;

    void writeBlocks(size_t count) {
        const OneProcessor first(OneProcessor::Which::kFirst);
        wakeReader();
        for (size_t block = 0; block < count; ++block) {
            for (size_t done = 0; done < mIn.size();) {
                const size_t written = mRing.write(mIn.data() + done, mIn.size() - done);
                done += written;
                if (written == 0) {
                    std::this_thread::yield();
                }
            }
        }
        mWritten += count * mIn.size();
        while (mRead.load(std::memory_order_acquire) != mWritten) {
            std::this_thread::yield();
        }
        mIsAwake = false;
    }

private:
    void wakeReader() {
        mIsAwake = true;
        mIsAwake.notify_one();
    }
    void readAll(size_t count) {
        const OneProcessor last(OneProcessor::Which::kLast);
        Frames out(count);
        while (!mDone) {
            const size_t frames = mRing.read(out.data(), out.size());
            mRead.store(mRead.load(std::memory_order_relaxed) + frames, std::memory_order_release);
            if (frames == 0) {
                mIsAwake.wait(false);
                std::this_thread::yield();
            }
        }
    }

    Ring mRing;
    const Frames mIn;
    uint64_t mWritten = 0;
    std::atomic<uint64_t> mRead{0};
    std::atomic<bool> mDone{false};
    std::atomic<bool> mIsAwake{false};
    std::thread mReader;
};

template <typename Ring>
void addTwoThreads(Duel& duel, const std::string& name, size_t count) {
    constexpr size_t kBlocks = 256;
    const auto threads = std::make_shared<TwoThreads<Ring>>(count);
    duel.add(name, static_cast<double>(kBlocks * count),
             [threads] { threads->writeBlocks(kBlocks); });
}

void addMemcpy(Duel& duel, size_t count) {
    const auto block = std::make_shared<Block>(count);
    const auto between = std::make_shared<Frames>(count);
    duel.add("memcpy", static_cast<double>(count), [block, between, count] {
        memcpy(between->data(), block->in.data(), count * sizeof(uint32_t));
        benchmark::ClobberMemory();
        memcpy(block->out.data(), between->data(), count * sizeof(uint32_t));
    });
}

}  // namespace

void registerBenchmarks() {
    for (const size_t count : {1U, 31U, 128U, 441U, 960U, 1023U}) {
        const std::string size = "/" + std::to_string(count);
        registerDuel("ring/copy" + size, [count](Duel& duel) {
            addOneThread<FrameBufferRing>(duel, "framebuffer", count);
            addOneThread<BoostRing>(duel, "boost", count);
            addOneThread<JackRing>(duel, "jack", count);
            addOneThread<PlainRing>(duel, "plainest", count);
            addMemcpy(duel, count);
        });
        registerDuel("ring/in_place" + size, [count](Duel& duel) {
            addInPlace<FrameBufferRing>(duel, "framebuffer", count);
            addInPlace<PlainRing>(duel, "plainest", count);
            addOneThread<BoostRing>(duel, "boost", count);
            addOneThread<JackRing>(duel, "jack", count);
        });
    }
    for (const size_t count : {128U, 441U, 960U}) {
        registerDuel("ring/two_threads/" + std::to_string(count), [count](Duel& duel) {
            addTwoThreads<FrameBufferRing>(duel, "framebuffer", count);
            addTwoThreads<BoostRing>(duel, "boost", count);
            addTwoThreads<JackRing>(duel, "jack", count);
            addTwoThreads<PlainRing>(duel, "plainest", count);
        });
    }
}
