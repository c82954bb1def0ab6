#pragma once

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "stream/AudioStream.h"
#include "tests/support/AudioPathGuard.h"

/** A stream whose conversion is scripted, and that records what the pipeline tells it. */
class FakeStream : public android::AudioStream {
public:
    // `frameCounts` are delivered one a cycle, the last for ever; `value` is added to each sample,
    // as the last stage of a chain does.
    explicit FakeStream(std::vector<int> frameCounts, int16_t value = 1)
        : AudioStream(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      AUDIO_OUTPUT_FLAG_NONE, 100),
          mFrameCounts(std::move(frameCounts)),
          mValue(value) {}

    int setDownstreamLatencyOffset(long offsetMs) override { return note(mOffsets, offsetMs, 0); }
    int config(uint32_t sampleRate, audio_format_t format, uint32_t channelMask) override {
        return note(mConfigs, {sampleRate, format, channelMask}, mConfigStatus);
    }
    int process(android::sp<android::FrameBuffer> output, size_t frameCount) override {
        note(mAsked, frameCount, 0);
        const int scripted = mFrameCounts[std::min(mAsked.size(), mFrameCounts.size()) - 1];
        size_t delivered = std::min<size_t>(static_cast<size_t>(std::max(scripted, 0)), frameCount);
        void* region = nullptr;
        if (delivered > 0 && output->obtainWriteBuffer(&region, delivered) == 0) {
            auto* const samples = static_cast<int16_t*>(region);
            for (size_t i = 0; i < 2 * delivered; ++i) {
                samples[i] = static_cast<int16_t>(samples[i] + mValue);
            }
            output->releaseWriteBuffer(region, delivered);
        }
        return scripted > 0 ? static_cast<int>(delivered) : scripted;
    }

    using Config = std::vector<uint32_t>;
    std::vector<long> offsets() const { return locked(mOffsets); }
    std::vector<Config> configs() const { return locked(mConfigs); }
    std::vector<size_t> asked() const { return locked(mAsked); }

    int mConfigStatus = 0;

private:
    template <typename T>
    int note(std::vector<T>& record, const T& value, int answer) {
        const AudioPathGuard::HostCode script;
        const std::lock_guard<std::mutex> lock(mRecordLock);
        record.push_back(value);
        return answer;
    }
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
