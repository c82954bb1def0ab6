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
        : mFrameCount(frameCount),
          mPowerOfTwo(powerOfTwo),
          mRead(read, indexOf(read)),
          mWrite(write, indexOf(write)) {}

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
        const uint64_t read = mRead.position.load(std::memory_order_acquire);
        return {read, mWrite.position.load(std::memory_order_acquire)};
    }

    bool isEmpty(const Snapshot& at) const { return static_cast<int64_t>(at.write - at.read) <= 0; }
    bool isFull(const Snapshot& at) const {
        return !isEmpty(at) && at.write - at.read >= mFrameCount;
    }

    /** Where up to `frameCount` frames would be written or read. Any thread. */
    Spans writeSpans(const Snapshot& at, size_t frameCount) const {
        return spans(indexOf(at.write), std::min(frameCount, free(at)));
    }
    Spans readSpans(const Snapshot& at, size_t frameCount) const {
        return spans(indexOf(at.read), std::min(frameCount, held(at)));
    }

    /** The same for the side itself, which knows its index without a division. */
    Spans producerSpans(size_t frameCount) { return producerSpans(snapshot(), frameCount); }
    Spans consumerSpans(size_t frameCount) { return consumerSpans(snapshot(), frameCount); }

    size_t availableToWrite() const { return free(snapshot()); }
    size_t availableToRead() const { return held(snapshot()); }

    /** `copy(spans)` moves up to `frameCount` frames in or out; the frames moved. */
    template <typename Copy>
    size_t write(size_t frameCount, Copy copy) {
        const Snapshot at = snapshot();
        const Spans spans = producerSpans(at, frameCount);
        copy(spans);
        mWrite.moveOn(at.write, spans, mFrameCount);
        return spans.total();
    }
    template <typename Copy>
    size_t read(size_t frameCount, Copy copy) {
        const Snapshot at = snapshot();
        const Spans spans = consumerSpans(at, frameCount);
        copy(spans);
        mRead.moveOn(at.read, spans, mFrameCount);
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

    /** Discards every frame held, once `wipe(spans)` has seen it. By the consumer: a read under way
     *  would bring back what it discards. */
    template <typename Wipe>
    void flush(Wipe wipe) {
        const Snapshot at = snapshot();
        wipe(readSpans(at, mFrameCount));
        mRead.position.store(at.write, std::memory_order_release);
    }

    void advanceWrite(size_t frameCount) { mWrite.advance(frameCount, mFrameCount); }
    void advanceRead(size_t frameCount) { mRead.advance(frameCount, mFrameCount); }

    void reset() {
        mRead.position.store(0, std::memory_order_release);
        mWrite.position.store(0, std::memory_order_release);
    }

private:
    Spans producerSpans(const Snapshot& at, size_t frameCount) {
        return spans(mWrite.index(at.write, *this), std::min(frameCount, free(at)));
    }
    Spans consumerSpans(const Snapshot& at, size_t frameCount) {
        return spans(mRead.index(at.read, *this), std::min(frameCount, held(at)));
    }

    /** A position, and where in the storage it lies. */
    struct Side {
        Side(uint64_t first, size_t index)
            : position(first), knownPosition(first), knownIndex(index) {}

        size_t index(uint64_t at, const RingPositions& ring) {
            if (knownPosition != at)
                [[unlikely]] {  // after a flush, a reset, a step beyond the ring
                knownIndex = ring.indexOf(at);
                knownPosition = at;
            }
            return knownIndex;
        }
        /** Over spans that begin at the position `from`. */
        void moveOn(uint64_t from, const Spans& over, size_t capacity) {
            knownPosition = from + over.total();
            knownIndex = over.second > 0 ? over.second : over.index + over.first;
            knownIndex -= knownIndex >= capacity ? capacity : 0;
            position.store(knownPosition, std::memory_order_release);
        }
        void advance(size_t step, size_t capacity) {
            const uint64_t from = position.load(std::memory_order_relaxed);
            if (knownPosition == from && step <= capacity) {
                knownPosition = from + step;
                knownIndex += step;
                knownIndex -= knownIndex >= capacity ? capacity : 0;
            }
            position.store(from + step, std::memory_order_release);
        }

        // 64 bits: at 768 kHz they last 760,000 years. Where the capacity is no power of two the
        // index would not survive their wrap.
        Atomic<uint64_t> position;  // its side stores (release: frames first)
        uint64_t knownPosition;     // its side alone
        size_t knownIndex;          // its side alone
        char apart[64] = {};        // no cache line holds both sides
    };

    size_t held(const Snapshot& at) const {
        const uint64_t count = at.write - at.read;
        return count <= mFrameCount ? count : heldOutOfOrder(at);
    }
    size_t free(const Snapshot& at) const {
        const uint64_t count = at.write - at.read;
        return count <= mFrameCount ? mFrameCount - count : freeOutOfOrder(at);
    }
    // Positions that updates have brought further apart than the ring is long, or past each other,
    // are told by their indices. Apart, so that the way of every other call is short.
    [[gnu::noinline, gnu::cold]] size_t heldOutOfOrder(Snapshot at) const {
        return isEmpty(at) ? 0 : distance(indexOf(at.read), indexOf(at.write));
    }
    [[gnu::noinline, gnu::cold]] size_t freeOutOfOrder(Snapshot at) const {
        return isFull(at) ? 0 : distance(indexOf(at.write), indexOf(at.read));
    }
    size_t distance(size_t from, size_t to) const {
        return to > from ? to - from : mFrameCount - from + to;
    }

    Spans spans(size_t index, size_t frameCount) const {
        const size_t first = std::min(frameCount, mFrameCount - index);
        return {index, first, frameCount - first};
    }

    const size_t mFrameCount;
    const bool mPowerOfTwo;
    Side mRead;   // the consumer's
    Side mWrite;  // the producer's
};

}  // namespace android
