#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "pipeline/AudioOutput.h"
#include "tests/support/AudioPathGuard.h"

/** An output that keeps what it hears, as 16-bit samples a block, and can be waited for. */
class FakeOutput : public android::AudioOutput {
public:
    explicit FakeOutput(uint32_t sampleRate = 48000, uint32_t format = 1, uint32_t channelMask = 3,
                        uint32_t flags = 0)
        : AudioOutput(sampleRate, static_cast<audio_format_t>(format), channelMask,
                      static_cast<audio_output_flags_t>(flags)) {}

    using Block = std::vector<int16_t>;

    ssize_t onDataProcessed(void* buffer, size_t byteCount) override {
        const AudioPathGuard::HostCode host;
        const auto* samples = static_cast<int16_t*>(buffer);
        std::unique_lock<std::mutex> lock(mLock);
        mBlocks.emplace_back(samples, samples + byteCount / sizeof(int16_t));
        mChanged.notify_all();
        // A stalled output holds the worker, so that a test sees exactly the blocks it asked for.
        mChanged.wait(lock, [this] { return mBlocks.size() < mAllowed; });
        return 0;
    }

    // Waits until `count` blocks have come; the worker then stays in the callback.
    std::vector<Block> takeBlocks(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        mAllowed = count;
        mChanged.notify_all();
        mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return mBlocks.size() >= count; });
        std::vector<Block> blocks = mBlocks;
        blocks.resize(count);  // silence instead of a crash where they did not come
        return blocks;
    }
    void letRun() {
        const std::lock_guard<std::mutex> lock(mLock);
        mAllowed = SIZE_MAX;
        mChanged.notify_all();
    }
    size_t blockCount() {
        const std::lock_guard<std::mutex> lock(mLock);
        return mBlocks.size();
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Block> mBlocks;
    size_t mAllowed = 1;
};
