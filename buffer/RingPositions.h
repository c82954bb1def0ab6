#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace android {

/**
 * The two positions of a ring of frames: which frames a step moves, and in which order the two
 * sides see it. The storage is the owner's, who reaches it between a snapshot and an advance.
 *
 * Invariant: held = written - read <= capacity; positions only grow, reset() aside.
 * Threads:   one producer (write, commitWrite, advanceWrite) and one consumer (read, commitRead,
 *            advanceRead, flush) at a time; reset() needs both sides; the queries are for any
 *            thread. Nothing blocks.
 * Atomic:    the type of the positions. All that the two sides share goes through it, so that a
 *            test may put in its place one whose interleavings it can list.
 */
template <template <typename> class Atomic = std::atomic>
class RingPositions {
public:
    struct Snapshot {
        uint64_t read;
        uint64_t write;
    };
    /** Two runs of frames: one from `index`, one from the start of the storage. */
    struct Spans {
        size_t index;
        size_t first;
        size_t second;
        size_t total() const { return first + second; }
    };

    /** `powerOfTwo`: the capacity is one, and indices are masked instead of divided. */
    RingPositions(size_t frameCount, bool powerOfTwo, uint64_t read, uint64_t write)
        : mFrameCount(frameCount), mPowerOfTwo(powerOfTwo), mRead(read), mWrite(write) {}

    size_t frameCount() const { return mFrameCount; }

    size_t indexOf(size_t position) const {
        if (mFrameCount == 0) {
            return 0;
        }
        return mPowerOfTwo ? position & (mFrameCount - 1) : position % mFrameCount;
    }

    Snapshot snapshot() const {
        // The read position first: whichever side asks, the frames held are never overstated to
        // the consumer nor the room to the producer.
        const uint64_t read = mRead.load(std::memory_order_acquire);
        return {read, mWrite.load(std::memory_order_acquire)};
    }

    bool isEmpty(const Snapshot& at) const { return static_cast<int64_t>(at.write - at.read) <= 0; }
    bool isFull(const Snapshot& at) const {
        return !isEmpty(at) && at.write - at.read >= mFrameCount;
    }

    /** Where up to `frameCount` frames would be written or read. */
    Spans writeSpans(const Snapshot& at, size_t frameCount) const {
        const size_t readIndex = indexOf(at.read);
        const size_t writeIndex = indexOf(at.write);
        if (isFull(at)) {
            return {writeIndex, 0, 0};
        }
        if (readIndex > writeIndex) {
            return {writeIndex, std::min(frameCount, readIndex - writeIndex), 0};
        }
        const size_t first = std::min(frameCount, mFrameCount - writeIndex);
        return {writeIndex, first, std::min(readIndex, frameCount - first)};
    }
    Spans readSpans(const Snapshot& at, size_t frameCount) const {
        const size_t readIndex = indexOf(at.read);
        const size_t writeIndex = indexOf(at.write);
        if (isEmpty(at)) {
            return {readIndex, 0, 0};
        }
        if (writeIndex > readIndex) {
            return {readIndex, std::min(frameCount, writeIndex - readIndex), 0};
        }
        const size_t first = std::min(frameCount, mFrameCount - readIndex);
        return {readIndex, first, std::min(writeIndex, frameCount - first)};
    }

    size_t availableToWrite() const { return writeSpans(snapshot(), mFrameCount).total(); }
    size_t availableToRead() const { return readSpans(snapshot(), mFrameCount).total(); }

    /** `copy(spans)` moves up to `frameCount` frames in or out; the frames moved. */
    template <typename Copy>
    size_t write(size_t frameCount, Copy copy) {
        const Spans spans = writeSpans(snapshot(), frameCount);
        copy(spans);
        advanceWrite(spans.total());
        return spans.total();
    }
    template <typename Copy>
    size_t read(size_t frameCount, Copy copy) {
        const Spans spans = readSpans(snapshot(), frameCount);
        copy(spans);
        advanceRead(spans.total());
        return spans.total();
    }

    /** Ends a use of the spans in place: advances by no more than there is. `excess(there)` hears
     *  of it if that is less than `frameCount`. */
    template <typename Excess>
    void commitWrite(size_t frameCount, Excess excess) {
        const size_t free = availableToWrite();
        if (frameCount > free) {
            excess(free);
        }
        advanceWrite(std::min(frameCount, free));
    }
    template <typename Excess>
    void commitRead(size_t frameCount, Excess excess) {
        const size_t held = availableToRead();
        if (frameCount > held) {
            excess(held);
        }
        advanceRead(std::min(frameCount, held));
    }

    /** Discards every frame held, once `wipe(spans)` has seen it. */
    template <typename Wipe>
    void flush(Wipe wipe) {
        const Snapshot at = snapshot();
        wipe(readSpans(at, mFrameCount));
        mRead.store(at.write, std::memory_order_release);
    }

    void advanceWrite(size_t frameCount) {
        const uint64_t position = mWrite.load(std::memory_order_relaxed);
        mWrite.store(position + frameCount, std::memory_order_release);
    }
    void advanceRead(size_t frameCount) {
        const uint64_t position = mRead.load(std::memory_order_relaxed);
        mRead.store(position + frameCount, std::memory_order_release);
    }

    void reset() {
        mRead.store(0, std::memory_order_release);
        mWrite.store(0, std::memory_order_release);
    }

private:
    const size_t mFrameCount;
    const bool mPowerOfTwo;
    // 64 bits: at 768 kHz they last 760,000 years. Where the capacity is no power of two the index
    // would not survive their wrap.
    Atomic<uint64_t> mRead;   // consumer stores (release: frames first), both read
    Atomic<uint64_t> mWrite;  // producer stores (release: frames first), both read
};

}  // namespace android
