#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "stream/AudioStream.h"

/** A stream whose conversion is scripted, and that records what the pipeline tells it. */
class FakeStream : public android::AudioStream {
public:
    /** `frameCounts` are delivered one a cycle, the last for ever; frames are filled with `value`
     *  (added, as the last stage of a chain does). */
    explicit FakeStream(std::vector<int> frameCounts, int16_t value = 1)
        : AudioStream(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      AUDIO_OUTPUT_FLAG_NONE, 100),
          mFrameCounts(std::move(frameCounts)),
          mValue(value) {}

    int setDownstreamLatencyOffset(long offsetMs) override {
        const std::lock_guard<std::mutex> lock(mRecordLock);
        mOffsets.push_back(offsetMs);
        return 0;
    }
    int config(uint32_t sampleRate, audio_format_t format, uint32_t channelMask) override {
        const std::lock_guard<std::mutex> lock(mRecordLock);
        mConfigs.push_back({sampleRate, format, channelMask});
        return mConfigStatus;
    }
    int process(android::sp<android::FrameBuffer> output, size_t frameCount) override {
        const std::lock_guard<std::mutex> lock(mRecordLock);
        mAsked.push_back(frameCount);
        const int scripted = mFrameCounts[std::min(mAsked.size(), mFrameCounts.size()) - 1];
        void* region = nullptr;
        size_t regionFrameCount = scripted > 0 ? std::min<size_t>(scripted, frameCount) : 0;
        if (regionFrameCount > 0 && output->obtainWriteBuffer(&region, regionFrameCount) == 0) {
            for (size_t i = 0; i < 2 * regionFrameCount; ++i) {
                static_cast<int16_t*>(region)[i] =
                    static_cast<int16_t>(static_cast<int16_t*>(region)[i] + mValue);
            }
            output->releaseWriteBuffer(region, regionFrameCount);
        }
        return scripted > 0 ? static_cast<int>(regionFrameCount) : scripted;
    }

    using Config = std::vector<uint32_t>;
    std::vector<long> offsets() const { return locked(mOffsets); }
    std::vector<Config> configs() const { return locked(mConfigs); }
    std::vector<size_t> asked() const { return locked(mAsked); }

    int mConfigStatus = 0;

private:
    template <typename T>
    T locked(const T& value) const {
        const std::lock_guard<std::mutex> lock(mRecordLock);
        return value;
    }

    mutable std::mutex mRecordLock;
    const std::vector<int> mFrameCounts;
    const int16_t mValue;
    std::vector<long> mOffsets;
    std::vector<Config> mConfigs;
    std::vector<size_t> mAsked;
};
