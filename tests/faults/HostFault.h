#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "interface/streamproxy.h"
#include "tests/support/AudioPathGuard.h"
#include "tests/support/LogCapture.h"

inline constexpr audio_proxy_config_t kMix = {48000, 1, 3, 0};
inline constexpr audio_proxy_config_t kTunnel = {48000, 1, 3, 0x40};

/** A host with one stream and one output, whose callback may do anything. */
class HostFaultTest : public testing::Test {
protected:
    HostFaultTest() { audio_proxy_pipeline_register_output(mPipeline, &kMix, this, &hear); }
    ~HostFaultTest() override {
        audio_proxy_pipeline_unregister_output(mPipeline, this, &hear);
        destroy_audio_proxy_stream(mStream);
        destroy_audio_proxy_pipeline(mPipeline);
    }

    int writeFrames(const std::vector<uint32_t>& frames) {
        return audio_proxy_stream_write(mStream, frames.data(), frames.size() * sizeof(uint32_t));
    }
    /** Frames of two samples that, together, carry their number. */
    std::vector<uint32_t> nextFrames(size_t count) {
        std::vector<uint32_t> frames(count);
        for (uint32_t& frame : frames) {
            frame = ++mLastFrame;
        }
        return frames;
    }
    std::vector<uint32_t> heard() {
        const std::lock_guard<std::mutex> lock(mHeardLock);
        return mHeard;
    }

    LogCapture mLog;
    audio_proxy_pipeline_t* const mPipeline = create_audio_proxy_pipeline();
    audio_proxy_stream_t* const mStream = create_audio_proxy_stream(&kMix);
    std::function<void()> mOnBlock = [] {};  // set before the first block comes
    std::atomic<int> mBlocks{0};
    uint32_t mLastFrame = 0;

private:
    static int hear(void* cookie, void* buffer, size_t byteCount) {
        const AudioPathGuard::HostCode host;
        auto* const test = static_cast<HostFaultTest*>(cookie);
        {
            const auto* const frames = static_cast<uint32_t*>(buffer);
            const std::lock_guard<std::mutex> lock(test->mHeardLock);
            test->mHeard.insert(test->mHeard.end(), frames, frames + byteCount / sizeof(uint32_t));
        }
        ++test->mBlocks;
        test->mOnBlock();
        return -EIO;  // heard by nobody
    }

    std::mutex mHeardLock;
    std::vector<uint32_t> mHeard;
};
