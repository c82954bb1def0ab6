#include "tools/mix/FeedBoard.h"

#include <algorithm>

namespace android {

bool FeedBoard::beginWrite(size_t index) {
    std::lock_guard lock(mLock);
    mInputs[index].isWriting = mState == State::RUNNING && !mInputs[index].isPaused;
    return mInputs[index].isWriting;
}

void FeedBoard::endWrite(size_t index, int64_t frameCount, bool isShort) {
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard lock(mLock);
    mInputs[index].isWriting = false;
    mInputs[index].lastWriteTime = now;
    mInputs[index].writtenFrames += frameCount;
    mInputs[index].shortWriteCount += isShort ? 1 : 0;
    if (mState != State::RUNNING || isFed_l()) {
        mWritten.notify_one();
    }
}

void FeedBoard::setAudioEnd(size_t index, int64_t frame) {
    std::lock_guard lock(mLock);
    mInputs[index].audioEndFrame = frame;
}

int64_t FeedBoard::waitForDemand(size_t index) {
    std::unique_lock lock(mLock);
    const Input& input = mInputs[index];
    mDemanded.wait(lock, [&] {
        return mState != State::RUNNING || input.isPaused ||
               input.demandFrames > input.writtenFrames;
    });
    return mState != State::RUNNING || input.isPaused ? 0
                                                      : input.demandFrames - input.writtenFrames;
}

void FeedBoard::demand(size_t index, int64_t frameCount) {
    std::lock_guard lock(mLock);
    mInputs[index].demandFrames = frameCount;
    mDemanded.notify_all();
}

void FeedBoard::demandMore(size_t index, int64_t frameCount) {
    std::lock_guard lock(mLock);
    Input& input = mInputs[index];
    if (input.audioEndFrame >= 0 && !input.isPaused) {
        input.demandFrames = input.writtenFrames + frameCount;
        mDemanded.notify_all();
    }
}

bool FeedBoard::setPaused(size_t index) {
    std::lock_guard lock(mLock);
    mInputs[index].isPaused = !mInputs[index].isWriting;
    mDemanded.notify_all();
    return mInputs[index].isPaused;
}

bool FeedBoard::waitUntilFed(std::chrono::milliseconds patience) {
    std::unique_lock lock(mLock);
    mWritten.wait_for(lock, patience, [&] { return mState != State::RUNNING || isFed_l(); });
    return mState != State::RUNNING || isFed_l();
}

bool FeedBoard::waitUntilIdle(std::chrono::milliseconds patience) {
    std::unique_lock lock(mLock);
    return mWritten.wait_for(lock, patience, [&] {
        return std::none_of(mInputs.begin(), mInputs.end(),
                            [](const Input& input) { return input.isWriting; });
    });
}

void FeedBoard::waitUntil(std::chrono::steady_clock::time_point time) {
    std::unique_lock lock(mLock);
    mWritten.wait_until(lock, time, [&] { return mState != State::RUNNING; });
}

FeedBoard::State FeedBoard::waitForEnd(std::chrono::milliseconds patience) {
    std::unique_lock lock(mLock);
    mEnded.wait_for(lock, patience, [&] { return mState != State::RUNNING; });
    return mState;
}

std::string FeedBoard::failure() const {
    std::lock_guard lock(mLock);
    return mFailure;
}

void FeedBoard::end(State state, const std::string& failure) {
    std::lock_guard lock(mLock);
    if (mState != State::RUNNING) {
        return;
    }
    mState = state;
    mFailure = failure;
    mWritten.notify_all();
    mDemanded.notify_all();
    mEnded.notify_all();
}

bool FeedBoard::isRunning() const {
    std::lock_guard lock(mLock);
    return mState == State::RUNNING;
}

bool FeedBoard::isFed() const {
    std::lock_guard lock(mLock);
    return isFed_l();
}

FeedBoard::Input FeedBoard::input(size_t index) const {
    std::lock_guard lock(mLock);
    return mInputs[index];
}

bool FeedBoard::isFed_l() const {
    return std::all_of(mInputs.begin(), mInputs.end(), [](const Input& input) {
        return input.isPaused || input.writtenFrames >= input.demandFrames;
    });
}

}  // namespace android
