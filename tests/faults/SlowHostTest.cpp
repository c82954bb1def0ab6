// Callbacks that block, or use streams, and hosts that destroy the pipeline beside them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "interface/streamproxy.h"
#include "tests/faults/HostFault.h"
#include "tests/support/Eventually.h"
#include "tests/support/VirtualTime.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

class SlowHostTest : public HostFaultTest {};

TEST_F(SlowHostTest, ACallbackThatBlocksForSecondsHoldsUpNoStream) {
    mOnBlock = [this] {
        if (mBlocks == 1) {
            std::this_thread::sleep_for(seconds(3));
        }
    };
    writeFrames(nextFrames(960));
    ASSERT_TRUE(eventually([this] { return mBlocks == 1; }));
    EXPECT_LT(timeOf([this] {
                  audio_proxy_stream_set_volume(mStream, 1, 1);
                  audio_proxy_stream_pause(mStream);
                  audio_proxy_stream_dump(mStream, -1);
                  audio_proxy_stream_flush(mStream);
              }),
              kNoWait);
    EXPECT_LT(timeOf([this] { EXPECT_EQ(8000, writeFrames(nextFrames(3000))) << "what fits"; }),
              seconds(1) + kNoWait);
    EXPECT_EQ(1, mBlocks);
    EXPECT_LT(timeOf([this] { EXPECT_EQ(0, audio_proxy_pipeline_dump(mPipeline, -1)); }),
              milliseconds(200) + kNoWait);
    EXPECT_TRUE(eventually([this] { return heard().size() == 2960; }));
}

/** Calls all that a callback may call as well. */
void useStream(audio_proxy_stream_t* stream) {
    const std::vector<uint8_t> garbage(100);
    audio_proxy_stream_open(stream);
    audio_proxy_stream_set_volume(stream, 1, 0.5F);
    audio_proxy_stream_set_downstream_latency(stream, 20, 0);
    audio_proxy_stream_set_parameters(stream, "hw_av_sync=3");
    audio_proxy_stream_get_latency(stream);
    audio_proxy_stream_write(stream, garbage.data(), garbage.size());
    audio_proxy_stream_pause(stream);
    audio_proxy_stream_resume(stream);
    audio_proxy_stream_dump(stream, -1);
    audio_proxy_stream_flush(stream);
    audio_proxy_stream_write(stream, garbage.data(), garbage.size());
    EXPECT_EQ(0, audio_proxy_stream_close(stream));
}

TEST_F(SlowHostTest, ACallbackMayUseStreamsThatAHostThreadUsesToo) {
    audio_proxy_stream_t* const tunnel = create_audio_proxy_stream(&kTunnel);
    audio_proxy_stream_t* const other = create_audio_proxy_stream(&kMix);
    std::atomic<int> used{0};
    mOnBlock = [&] {
        if (used < 3) {
            useStream(other);
            useStream(tunnel);
            ++used;
        }
    };
    for (const auto limit = steady_clock::now() + seconds(60);
         used < 3 && steady_clock::now() < limit;) {
        writeFrames(nextFrames(960));
        audio_proxy_stream_pause(tunnel);
        audio_proxy_stream_close(tunnel);
    }
    EXPECT_EQ(3, used);
    EXPECT_EQ(0, destroy_audio_proxy_stream(other));
    EXPECT_EQ(0, destroy_audio_proxy_stream(tunnel));
}

TEST_F(SlowHostTest, AStreamNeverWaitsForACallbackThatWaitsForItsCaller) {
    std::mutex hostLock;
    std::atomic<bool> isWaiting{false};
    mOnBlock = [&] {
        isWaiting = true;
        const std::lock_guard<std::mutex> lock(hostLock);
    };
    audio_proxy_stream_t* const tunnel = create_audio_proxy_stream(&kTunnel);
    {
        const std::lock_guard<std::mutex> lock(hostLock);
        writeFrames(nextFrames(960));
        ASSERT_TRUE(eventually([&isWaiting] { return isWaiting.load(); }));
        for (audio_proxy_stream_t* const stream : {mStream, tunnel}) {
            useStream(stream);
        }
        EXPECT_EQ(1, mBlocks) << "the callback waits all the while";
    }
    EXPECT_EQ(0, destroy_audio_proxy_stream(tunnel));
}

TEST(PipelineFault, NoCallbackComesOnceThePipelineIsDestroyedWhoeverElseUsesIt) {
    struct Host {
        std::atomic<bool> isGone{false};
        std::atomic<int> lateCalls{0};
    };
    const int nowhere = open("/dev/null", O_WRONLY);
    for (int round = 0; round < 20; ++round) {
        Host host;
        audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
        const audio_proxy_output_callback_t hear = [](void* cookie, void*, size_t) {
            auto* const heard = static_cast<Host*>(cookie);
            heard->lateCalls += heard->isGone ? 1 : 0;
            return 0;
        };
        audio_proxy_pipeline_register_output(pipeline, &kMix, &host, hear);
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kMix);
        std::atomic<bool> done{false};
        std::thread writer([&] {
            const std::vector<uint8_t> block(3840);
            while (!done) {
                audio_proxy_stream_write(stream, block.data(), block.size());
            }
        });
        std::thread dumper([&] {
            while (!done) {
                audio_proxy_pipeline_dump(pipeline, nowhere);
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(5 + round));
        EXPECT_EQ(0, destroy_audio_proxy_pipeline(pipeline));
        host.isGone = true;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        done = true;
        writer.join();
        dumper.join();
        EXPECT_EQ(0, host.lateCalls);
        EXPECT_EQ(-EINVAL, audio_proxy_stream_open(stream)) << "it went with its pipeline";
        audio_proxy_pipeline_t* const next = create_audio_proxy_pipeline();
        audio_proxy_pipeline_unregister_output(next, &host, hear);
        destroy_audio_proxy_pipeline(next);
    }
    close(nowhere);
}

}  // namespace
