#include "pipeline/ListHandover.h"

#include <algorithm>
#include <utility>

namespace android {

ListHandover::Pack::Pack(size_t streamRoom, size_t outputRoom)
    : streamCapacity(streamRoom), outputCapacity(outputRoom) {
    streams.setCapacity(streamRoom);
    outputs.setCapacity(outputRoom);
    opened.setCapacity(streamRoom);
}

ListHandover::~ListHandover() {
    const std::unique_ptr<Pack> offered(mOffered.load(std::memory_order_relaxed));
    collect();
}

void ListHandover::reserve(size_t streamCount, size_t outputCount) {
    if (streamCount <= mStreamCapacity && outputCount <= mOutputCapacity) {
        return;
    }
    const size_t streamCapacity = std::max(streamCount, mStreamCapacity);
    const size_t outputCapacity = std::max(outputCount, mOutputCapacity);
    auto first = std::make_unique<Pack>(streamCapacity, outputCapacity);
    auto second = std::make_unique<Pack>(streamCapacity, outputCapacity);
    mSpares[0] = std::move(first);
    mSpares[1] = std::move(second);
    mStreamCapacity = streamCapacity;
    mOutputCapacity = outputCapacity;
}

uint32_t ListHandover::offer(const Vector<AudioStream*>& streams,
                             const Vector<AudioOutput*>& outputs) {
    std::unique_ptr<Pack> pack = takeSpare();
    for (AudioStream* const stream : streams) {
        pack->streams.add(stream);
    }
    for (AudioOutput* const output : outputs) {
        pack->outputs.add(output);
    }
    pack->ticket = ++mLastTicket;
    keep(std::unique_ptr<Pack>(mOffered.exchange(pack.release(), std::memory_order_acq_rel)));
    return mLastTicket;
}

std::unique_ptr<ListHandover::Pack> ListHandover::takeSpare() {
    for (;;) {
        collect();
        for (std::unique_ptr<Pack>& spare : mSpares) {
            if (spare != nullptr) {
                return std::move(spare);
            }
        }
        keep(std::unique_ptr<Pack>(mOffered.exchange(nullptr, std::memory_order_acq_rel)));
        if (mSpares[0] == nullptr && mSpares[1] == nullptr) {
            // The worker took it and is about to give the other one back.
            mProgress.waitWhile([this] { return !isTaken(mLastTicket); });
        }
    }
}

void ListHandover::keep(std::unique_ptr<Pack> pack) {
    if (pack == nullptr) {
        return;
    }
    pack->streams.clear();
    pack->outputs.clear();
    if (hasRoom(*pack)) {
        (mSpares[0] == nullptr ? mSpares[0] : mSpares[1]) = std::move(pack);
    }
}

bool ListHandover::hasRoom(const Pack& pack) const {
    return pack.streamCapacity >= mStreamCapacity && pack.outputCapacity >= mOutputCapacity;
}

void ListHandover::collect() {
    Pack* returned = mReturned.exchange(nullptr, std::memory_order_acquire);
    while (returned != nullptr) {
        std::unique_ptr<Pack> pack(returned);
        returned = pack->next;
        keep(std::move(pack));
    }
}

void ListHandover::takeOver(Vector<sp<AudioStream>>& streams, Vector<sp<AudioOutput>>& outputs,
                            Vector<sp<AudioStream>>& opened) {
    if (mOffered.load(std::memory_order_relaxed) == nullptr) {
        return;
    }
    Pack* const pack = mOffered.exchange(nullptr, std::memory_order_acquire);
    if (pack == nullptr) {
        return;  // withdrawn for a newer change
    }
    const uint32_t ticket = pack->ticket;
    std::swap(streams, pack->streams);
    std::swap(outputs, pack->outputs);
    std::swap(opened, pack->opened);
    std::swap(mWorkersStreamCapacity, pack->streamCapacity);
    std::swap(mWorkersOutputCapacity, pack->outputCapacity);
    pack->next = mReturned.load(std::memory_order_relaxed);
    while (!mReturned.compare_exchange_weak(pack->next, pack, std::memory_order_release,
                                            std::memory_order_relaxed)) {
    }
    mTakenTicket.store(ticket, std::memory_order_release);
    mProgress.made();
}

void ListHandover::setWorking(bool isWorking) {
    mIsWorking.store(isWorking, std::memory_order_release);
    mProgress.made();
}

bool ListHandover::isTaken(uint32_t ticket) const {
    // Tickets wrap around; those in use are close together.
    return static_cast<int32_t>(mTakenTicket.load(std::memory_order_acquire) - ticket) >= 0;
}

void ListHandover::waitUntilTaken(uint32_t ticket) {
    mProgress.waitWhile([this, ticket] { return !isTaken(ticket) && isWorking(); });
}

bool ListHandover::waitUntilStopped(int64_t deadlineNs) {
    return mProgress.waitWhile([this] { return isWorking(); }, deadlineNs);
}

}  // namespace android
