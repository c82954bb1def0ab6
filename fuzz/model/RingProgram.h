#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include "buffer/RingPositions.h"
#include "fuzz/model/Explorer.h"
#include "fuzz/model/ModelAtomic.h"
#include "sync/ConsumeSignal.h"

enum class Flaw { kNone, kFlushWithoutLock, kNotifyBeforeAdvance };

struct RingSetting {
    size_t capacity;
    uint64_t start;                                          // of both positions
    Explorer::Relaxed relaxed = {Explorer::Kind::kNote, 0};  // by default none
    Flaw flaw = Flaw::kNone;
    size_t wakeCount = 0;  // of a sleeper, without reason
};

/**
 * The threads around one ring, step by step as FrameBuffer and AudioStream take them, with the
 * library's own positions and signal. Frames are numbered from 1.
 */
template <typename Ring = android::RingPositions<ModelAtomic>,
          typename Signal = android::ConsumeSignal<ModelAtomic>>
class RingProgram {
public:
    explicit RingProgram(const RingSetting& setting)
        : mSetting(setting),
          mExplorer(setting.relaxed, setting.wakeCount),
          mRing(setting.capacity, (setting.capacity & (setting.capacity - 1)) == 0, setting.start,
                setting.start) {}

    /** FrameBuffer::write(), so often, of up to so many frames. */
    RingProgram& writes(size_t callCount, size_t frameCount) {
        return add([=, this] {
            uint64_t next = 1;
            for (size_t i = 0; i < callCount; ++i) {
                next += mRing.write(frameCount, [this, next](const auto& spans) {
                    put(spans.index, spans.first, next);
                    put(0, spans.second, next + spans.first);
                });
            }
        });
    }
    /** AudioStream::write(). */
    RingProgram& writesBlocking(size_t frameCount) {
        mIsAsleepRightly = [this] { return mRing.availableToWrite() == 0; };
        return add([=, this] { writeBlocking(frameCount); });
    }
    /** AudioStream::close() of a stream that holds so many frames. */
    RingProgram& writesAndCloses(size_t frameCount) {
        mIsAsleepRightly = [this] { return mRing.availableToRead() > 0; };
        mFlusher = mThreads.size();
        return add([=, this] {
            writeBlocking(frameCount);
            if (mRing.availableToRead() > 0) {
                mSignal.wait([this] { return mRing.availableToRead() > 0; }, kSleep);
            }
            flush();
        });
    }
    /** AudioStream::read(), which copies. */
    RingProgram& reads(size_t callCount, size_t frameCount) {
        return add([=, this] {
            for (size_t i = 0; i < callCount; ++i) {
                lock(Explorer::Kind::kLock);
                const size_t taken = mRing.read(frameCount, [this](const auto& spans) {
                    take(spans);
                    if (mSetting.flaw == Flaw::kNotifyBeforeAdvance && spans.total() > 0) {
                        mSignal.notify(kWake);
                    }
                });
                if (taken > 0 && mSetting.flaw != Flaw::kNotifyBeforeAdvance) {
                    mSignal.notify(kWake);
                }
                lock(Explorer::Kind::kUnlock);
            }
        });
    }
    /** AudioStream::process() with a first stage that works in place. */
    RingProgram& pulls(size_t callCount, size_t frameCount) {
        return add([=, this] {
            for (size_t i = 0; i < callCount; ++i) {
                lock(Explorer::Kind::kLock);
                const auto spans = mRing.readSpans(mRing.snapshot(), frameCount);
                if (spans.first > 0) {
                    take({spans.index, spans.first, 0});
                    mRing.commitRead(spans.first, kExcess);
                    mSignal.notify(kWake);
                }
                lock(Explorer::Kind::kUnlock);
            }
        });
    }
    /** AudioStream::flush(). */
    RingProgram& flushes() {
        mFlusher = mThreads.size();
        return add([this] { flush(); });
    }

    Explorer::Result explore() {
        return mExplorer.explore({mThreads,
                                  [this](size_t timeOutCount) { return mayTimeOut(timeOutCount); },
                                  [this] { check(); }});
    }

private:
    static constexpr auto kSleep = [](auto& word, uint32_t expected) {
        return word.sleep(expected);
    };
    static constexpr auto kExcess = [](size_t) {
        throw Explorer::Fault{"room or frames are gone"};
    };
    static constexpr auto kWake = [](auto& word) { return word.wake(); };

    RingProgram& add(std::function<void()> body) {
        mThreads.push_back(std::move(body));
        return *this;
    }
    void lock(Explorer::Kind kind) { mExplorer.step({kind}); }

    void put(size_t index, size_t frameCount, uint64_t first) {
        for (size_t i = 0; i < frameCount; ++i) {
            mExplorer.step({Explorer::Kind::kWrite, index + i, first + i});
        }
    }
    void take(const typename Ring::Spans& spans) {
        for (size_t i = 0; i < spans.total(); ++i) {
            const size_t index = i < spans.first ? spans.index + i : i - spans.first;
            mExplorer.step(
                {Explorer::Kind::kNote, 0, mExplorer.step({Explorer::Kind::kRead, index})});
        }
    }
    void writeBlocking(size_t frameCount) {
        for (size_t done = 0; done < frameCount;) {
            const auto spans = mRing.writeSpans(mRing.snapshot(), frameCount - done);
            if (spans.first > 0) {
                put(spans.index, spans.first, done + 1);
                mRing.commitWrite(spans.first, kExcess);
                done += spans.first;
            } else {
                mSignal.wait([this] { return mRing.availableToWrite() == 0; }, kSleep);
            }
        }
    }
    void flush() {
        const bool locks = mSetting.flaw != Flaw::kFlushWithoutLock;
        if (locks) {
            lock(Explorer::Kind::kLock);
        }
        mRing.flush([this](const auto& spans) {
            take(spans);
            put(spans.index, spans.first, 0);
            put(0, spans.second, 0);
        });
        if (locks) {
            lock(Explorer::Kind::kUnlock);
        }
    }

    // A flush wakes nobody: the sleeper sees the room at its next time-out. Nothing else needs one.
    bool mayTimeOut(size_t timeOutCount) const {
        if (mIsAsleepRightly()) {
            return false;
        }
        if (timeOutCount > 0 || mFlusher >= mThreads.size() || mExplorer.notes(mFlusher).empty()) {
            throw Explorer::Fault{"a wake-up is lost: asleep for no reason"};
        }
        return true;
    }

    // The frames read, flushed and held are all frames written, each once, in order.
    void check() {
        const auto at = mRing.snapshot();
        std::vector<uint64_t> all;
        for (size_t i = 0; i < mThreads.size(); ++i) {
            const std::vector<uint64_t>& frames = mExplorer.notes(i);
            if (!std::is_sorted(frames.begin(), frames.end())) {
                throw Explorer::Fault{"frames out of order"};
            }
            if (i == mFlusher && !frames.empty() &&
                frames.back() - frames.front() + 1 != frames.size()) {
                throw Explorer::Fault{"a flush discards what is no run of frames"};
            }
            all.insert(all.end(), frames.begin(), frames.end());
        }
        std::sort(all.begin(), all.end());
        for (uint64_t position = at.read; position != at.write; ++position) {
            all.push_back(mExplorer.step({Explorer::Kind::kRead, mRing.indexOf(position)}));
        }
        std::vector<uint64_t> written(at.write - mSetting.start);
        for (size_t i = 0; i < written.size(); ++i) {
            written[i] = i + 1;
        }
        if (all != written) {
            throw Explorer::Fault{"a frame is lost, or comes twice"};
        }
    }

    const RingSetting mSetting;
    Explorer mExplorer;
    Ring mRing;
    Signal mSignal;
    std::vector<std::function<void()>> mThreads;
    std::function<bool()> mIsAsleepRightly;
    size_t mFlusher = Explorer::kMaxThreads;
};
