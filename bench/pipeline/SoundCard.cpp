#include "bench/pipeline/SoundCard.h"

#include <algorithm>
#include <thread>

namespace {

double inMs(SoundCard::Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

}  // namespace

SoundCard::SoundCard(uint32_t sampleRate, Clock::duration bufferLength)
    : mSampleRate(sampleRate), mBufferLength(bufferLength), mDry(Clock::now()) {}

void SoundCard::play(size_t frameCount) {
    const Clock::time_point now = Clock::now();
    const Clock::duration silent = silentFor(now);
    mTotal.store(mTotal.load() + silent);
    mLongest.store(std::max(mLongest.load(), silent));
    const Clock::time_point dry =
        std::max(mDry.load(), now) +
        std::chrono::nanoseconds(uint64_t{1'000'000'000} * frameCount / mSampleRate);
    mDry.store(dry);
    std::this_thread::sleep_until(dry - mBufferLength);
}

SoundCard::Clock::duration SoundCard::silentFor(Clock::time_point now) const {
    return std::max(now - std::max(mDry.load(), mBegin.load()), Clock::duration::zero());
}

void SoundCard::begin() {
    mBegin.store(Clock::now());
    mTotal.store(Clock::duration::zero());
    mLongest.store(Clock::duration::zero());
}

SoundCard::Silence SoundCard::silence() const {
    const Clock::duration lasting = silentFor(Clock::now());
    return {inMs(mTotal.load() + lasting), inMs(std::max(mLongest.load(), lasting))};
}
