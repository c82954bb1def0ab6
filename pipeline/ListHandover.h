#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "pipeline/AudioOutput.h"
#include "stream/AudioStream.h"
#include "sync/Progress.h"
#include "utils/RefBase.h"
#include "utils/Vector.h"

namespace android {

/**
 * Hands lists from control threads to the worker, which takes the newest between two cycles. The
 * worker neither waits nor allocates nor frees: its former lists come back, and a control thread
 * empties them.
 *
 * Two packs of lists are enough for any number of changes: the worker works on one, and the other
 * is spare, offered, or on its way back. So lists that once had room can be offered again without
 * memory.
 *
 * Threads: the worker, or whoever holds its lock, takes over and stops; control threads do the
 *          rest, reserve(), offer() and collect() one at a time.
 */
class ListHandover {
public:
    ListHandover() = default;
    ~ListHandover();
    ListHandover(const ListHandover&) = delete;
    ListHandover& operator=(const ListHandover&) = delete;

    /** Makes room for lists of these lengths. Throws std::bad_alloc with nothing changed. */
    void reserve(size_t streamCount, size_t outputCount);
    /** Offers a copy of these lists, no longer than reserved; replaces an offer not taken yet.
     *  Returns the ticket. May wait a few instructions for the worker to end a take-over. */
    uint32_t offer(const Vector<AudioStream*>& streams, const Vector<AudioOutput*>& outputs);
    /** Drops the references in the lists that came back. */
    void collect();

    /** Replaces the worker's lists by the newest, unless it has them. */
    void takeOver(Vector<sp<AudioStream>>& streams, Vector<sp<AudioOutput>>& outputs,
                  Vector<sp<AudioStream>>& opened);
    /** While set, every offer is taken over soon. */
    void setWorking(bool isWorking);

    bool isWorking() const { return mIsWorking.load(std::memory_order_acquire); }
    bool isTaken(uint32_t ticket) const;
    /** Sleeps until the change is taken over or nobody works. Any control thread. */
    void waitUntilTaken(uint32_t ticket);
    /** Sleeps until nobody works; false at the deadline (monotonic clock). */
    [[nodiscard]] bool waitUntilStopped(int64_t deadlineNs);

private:
    struct Pack {
        Pack(size_t streamRoom, size_t outputRoom);

        Vector<sp<AudioStream>> streams;
        Vector<sp<AudioOutput>> outputs;
        Vector<sp<AudioStream>> opened;  // empty, with room for all streams
        size_t streamCapacity;
        size_t outputCapacity;
        uint32_t ticket = 0;
        Pack* next = nullptr;  // among those that came back
    };

    std::unique_ptr<Pack> takeSpare();
    void keep(std::unique_ptr<Pack> pack);
    bool hasRoom(const Pack& pack) const;

    // Control threads, one at a time.
    size_t mStreamCapacity = 0;
    size_t mOutputCapacity = 0;
    std::unique_ptr<Pack> mSpares[2];
    uint32_t mLastTicket = 0;

    size_t mWorkersStreamCapacity = 0;  // of the worker's lists; with its lock
    size_t mWorkersOutputCapacity = 0;
    std::atomic<Pack*> mOffered{nullptr};   // release: the lists first
    std::atomic<Pack*> mReturned{nullptr};  // the same, the other way round
    std::atomic<uint32_t> mTakenTicket{0};  // after the former lists were given back
    std::atomic<bool> mIsWorking{false};
    Progress mProgress;
};

}  // namespace android
