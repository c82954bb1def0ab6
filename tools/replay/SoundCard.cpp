#include "tools/replay/SoundCard.h"

#include <algorithm>
#include <thread>

#include "tools/audio/Handover.h"

namespace android {

namespace {

using Clock = std::chrono::steady_clock;

// As much audio as a card has in its own buffer.
constexpr std::chrono::milliseconds kPatience{40};

}  // namespace

SoundCard::SoundCard(uint32_t rateHz, uint32_t bits, AudioWriter* writer, ReplayRecorder& recorder)
    : mRateHz(rateHz),
      mFrameBytes(bits == 16 ? 4 : 8),
      mBlockFrames(blockFrames(rateHz)),
      mWriter(writer),
      mRecorder(recorder) {}

int SoundCard::onBlock(void* cookie, void* buffer, size_t byteCount) {
    auto* self = static_cast<SoundCard*>(cookie);
    self->play(buffer, static_cast<int64_t>(byteCount) / self->mFrameBytes);
    return 0;
}

void SoundCard::play(const void* buffer, int64_t frameCount) {
    mRecorder.beginBlock(buffer, frameCount);
    mFrameCount += frameCount;
    mShortBlockCount += frameCount < mBlockFrames ? 1 : 0;
    if (mWriter != nullptr) {
        write(buffer, frameCount);
    }
    pace(frameCount);
    mRecorder.endBlock();
}

void SoundCard::write(const void* buffer, int64_t frameCount) {
    if (!failure().empty()) {
        return;
    }
    try {
        mWriter->write(buffer, static_cast<size_t>(frameCount));
    } catch (const std::exception& error) {
        const std::lock_guard<std::mutex> lock(mLock);
        mFailure = error.what();
    }
}

void SoundCard::pace(int64_t frameCount) {
    const Clock::time_point now = Clock::now();
    const auto playedNs = [this] {
        return std::chrono::nanoseconds(mPlayedFrames * 1'000'000'000 / mRateHz);
    };
    const bool isFirst = mStart == Clock::time_point{};
    if (isFirst || now > mStart + playedNs() + kPatience) {
        if (!isFirst) {
            const Clock::duration late = now - (mStart + playedNs() + kPatience);
            ++mUnderrunCount;
            mLongestUnderrunNs =
                std::max<int64_t>(mLongestUnderrunNs, std::chrono::nanoseconds(late).count());
        }
        mStart = now;
        mPlayedFrames = 0;
    }
    mPlayedFrames += frameCount;
    std::this_thread::sleep_until(mStart + playedNs());
}

std::string SoundCard::failure() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mFailure;
}

}  // namespace android
