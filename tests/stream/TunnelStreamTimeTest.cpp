// How long the calls of a tunnel stream wait, and for what, in virtual time.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "stream/TunnelStream.h"
#include "tests/support/Bursts.h"
#include "utils/Timers.h"
#include "virtualtime/VirtualMachine.h"

namespace android {

namespace {

using Order = VirtualMachine::Order;

constexpr int64_t kNsPerMs = 1'000'000;

/** Nobody takes frames from it: it is full after 100. */
sp<TunnelStream> makeStream() {
    const sp<TunnelStream> stream(new TunnelStream(48000, AUDIO_FORMAT_PCM_16_BIT,
                                                   AUDIO_CHANNEL_OUT_STEREO,
                                                   AUDIO_OUTPUT_FLAG_HW_AV_SYNC, 100));
    stream->config(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    return stream;
}

void write(const sp<TunnelStream>& stream) {
    const Bytes burst = makeBurst({}, Bytes(1200));
    stream->openAndWrite(burst.data(), burst.size());
}

}  // namespace

TEST(TunnelStreamInVirtualTime, ACloseDoesNotWaitForWritesThatBeginMeanwhile) {
    for (uint64_t seed = 0; seed < 100; ++seed) {
        const VirtualMachine::Config config = {.seed = seed,
                                               .order = Order::PRIORITIES,
                                               .changePointCount = 20,
                                               .changePointSpan = 2000,
                                               .maxStepCount = 1'000'000};
        VirtualMachine::run(config, [&] {
            const sp<TunnelStream> stream = makeStream();
            std::atomic<bool> isOver{false};
            std::thread writer([&] {
                while (!isOver) {
                    write(stream);
                    write(stream);
                    usleep(1000);  // a write that is ended takes no time
                }
            });
            usleep(5000);
            const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
            stream->close();
            EXPECT_LT(systemTime(SYSTEM_TIME_MONOTONIC) - start, 1020 * kNsPerMs) << seed;
            isOver = true;
            writer.join();
            stream->flush();
            stream->close();
        });
    }
}

TEST(TunnelStreamInVirtualTime, APauseHoldsAgainstAWriteThatWaitsForAClose) {
    VirtualMachine::run({}, [] {
        const sp<TunnelStream> stream = makeStream();
        stream->open();
        write(stream);
        std::thread closer([&] { stream->close(); });
        usleep(100'000);
        stream->pause();
        std::thread writer([&] { write(stream); });
        usleep(100'000);
        stream->pause();
        closer.join();
        EXPECT_FALSE(stream->isOpened());
        writer.join();
        EXPECT_FALSE(stream->isOpened());
        stream->close();
    });
}

}  // namespace android
