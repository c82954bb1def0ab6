// One allocation after the other fails while a host uses the library from end to end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <vector>

#include "android/log.h"
#include "avsync/AVSyncClock.h"
#include "cutils/properties.h"
#include "interface/streamproxy.h"
#include "tests/support/Bursts.h"
#include "tests/support/Eventually.h"
#include "tests/support/FaultInjection.h"

using android::AVSyncClock;

namespace {

constexpr audio_proxy_config_t kDefaultMix = {44100, 1, 3, 0};
constexpr audio_proxy_config_t kWideMix = {96000, 3, 3, 0};
constexpr int kHwSyncId = 7;
constexpr int16_t kLoud = 1000;

std::atomic<int> gLoudBlocks{0};

int listen(void* /*cookie*/, void* buffer, size_t byteCount) {
    const auto* const samples = static_cast<const int32_t*>(buffer);
    // Of the wide mix the left sample: a mono stream is heard there.
    gLoudBlocks += samples[byteCount / sizeof(int32_t) - 2] != 0 ? 1 : 0;
    return 0;
}

/** One life of a host's, in which at most one call meets a fault; that call is made again. */
class Life {
public:
    void run() {
        create();
        play();
        changeMix();
        end();
    }

private:
    /** Calls the library. What may come of a fault is `failure`; everything else of no fault. */
    template <typename Result, typename Call>
    Result expectOr(Result failure, Call call, bool (*isGood)(Result)) {
        const bool hadFailed = FaultInjection::hasFailed();
        Result result = within(call);
        const bool failed = !hadFailed && FaultInjection::hasFailed();
        mMetFault = failed;
        if (failed) {
            FaultInjection::failNothing();
        }
        if (isGood(result)) {
            return result;
        }
        EXPECT_TRUE(failed);
        EXPECT_EQ(failure, result);
        result = call();
        EXPECT_TRUE(isGood(result)) << "it does not work afterwards either";
        return result;
    }
    template <typename Call>
    int statusOr(int failure, Call call) {
        return expectOr<int>(failure, call, [](int status) { return status >= 0; });
    }
    template <typename Call>
    static auto within(Call call) {
        const FaultInjection::Window window;
        return call();
    }

    audio_proxy_stream_t* makeStream(const audio_proxy_config_t& config) {
        auto* stream = expectOr<audio_proxy_stream_t*>(
            nullptr, [&config] { return create_audio_proxy_stream(&config); },
            [](audio_proxy_stream_t* made) { return made != nullptr; });
        if (mMetFault) {
            // It may have no buffer, or no place for headers: it takes nothing, and can be replaced.
            const Bytes silence = makeBurst({}, Bytes(4));
            const size_t byteCount = config.flags != 0 ? silence.size() : 4;
            const int taken = audio_proxy_stream_write(stream, silence.data(), byteCount);
            if (taken != static_cast<int>(byteCount)) {
                EXPECT_LE(taken, 0);
            }
            EXPECT_EQ(0, audio_proxy_stream_flush(stream));
            EXPECT_EQ(0, destroy_audio_proxy_stream(stream));
            stream = create_audio_proxy_stream(&config);
        }
        return stream;
    }

    void create() {
        property_set("persist.vendor.hwsync.fbuffer.size", "60000");
        mPipeline = expectOr<audio_proxy_pipeline_t*>(
            nullptr, [] { return create_audio_proxy_pipeline(); },
            [](audio_proxy_pipeline_t* made) { return made != nullptr; });
        mPlain = makeStream({48000, 3, 1, 0});
        mTunnel = makeStream({48000, 1, 3, 0x40});
        statusOr(-ENOMEM, [this] {
            return audio_proxy_pipeline_register_output(mPipeline, &kDefaultMix, this, &listen);
        });
        const auto makeBridge = [this] {
            return audio_proxy_stream_set_parameters(mTunnel, "a_key_for_others=1;hw_av_sync=7");
        };
        statusOr(-ENOMEM, makeBridge);
        if (mMetFault) {
            EXPECT_EQ(0, makeBridge());  // the platform's fault is logged and not told
        }
    }

    void play() {
        statusOr(-ENOSYS, [this] { return audio_proxy_stream_open(mTunnel); });
        statusOr(0, [this] { return audio_proxy_stream_set_downstream_latency(mTunnel, 50, 0); });
        statusOr(0, [this] { return audio_proxy_stream_set_volume(mPlain, 0.5F, 1.0F); });
        statusOr(-ENOMEM, [this] {
            return audio_proxy_pipeline_set_parameters(mPipeline,
                                                       "for_others=1;set_audio_delay=-20");
        });
        // The second burst leads the clock by 400 ms, which is filled with silence.
        const auto clock = AVSyncClock::forId(kHwSyncId);
        for (const uint64_t ptsNs : {1'000'000'000U, 1'400'000'000U}) {
            const Bytes burst = makeBurst({.ptsNs = ptsNs}, Bytes(400));
            statusOr(0, [&] {
                const int taken = audio_proxy_stream_write(mTunnel, burst.data(), burst.size());
                return taken - static_cast<int>(burst.size());
            });
            clock->pause();  // the decision on the second burst is not a matter of time
        }
        const int nowhere = open("/dev/null", O_WRONLY);
        statusOr(0, [&] { return audio_proxy_pipeline_dump(mPipeline, nowhere); });
        statusOr(-ENOMEM, [&] { return audio_proxy_stream_dump(mTunnel, nowhere); });
        close(nowhere);
        statusOr(0, [this] { return audio_proxy_stream_flush(mTunnel); });
        statusOr(0, [this] { return audio_proxy_stream_pause(mTunnel); });
    }

    void changeMix() {
        statusOr(
            0, [this] { return audio_proxy_pipeline_unregister_output(mPipeline, this, &listen); });
        statusOr(-ENOMEM, [this] {
            return audio_proxy_pipeline_register_output(mPipeline, &kWideMix, this, &listen);
        });
        // Whatever failed before: the stream is heard, in the new mix.
        const std::vector<int32_t> loud(4800, kLoud << 16);
        gLoudBlocks = 0;
        const int byteCount = static_cast<int>(loud.size() * sizeof(int32_t));
        statusOr(0, [&] {
            return audio_proxy_stream_write(mPlain, loud.data(), static_cast<size_t>(byteCount)) -
                   byteCount;
        });
        EXPECT_TRUE(eventually([] { return gLoudBlocks >= 3; }));
        statusOr(0, [this] { return audio_proxy_stream_flush(mPlain); });
    }

    void end() {
        statusOr(0, [this] { return audio_proxy_stream_close(mTunnel); });
        statusOr(0, [this] { return destroy_audio_proxy_stream(mPlain); });
        statusOr(0, [this] { return destroy_audio_proxy_stream(mTunnel); });
        statusOr(
            0, [this] { return audio_proxy_pipeline_unregister_output(mPipeline, this, &listen); });
        statusOr(0, [this] { return destroy_audio_proxy_pipeline(mPipeline); });
        property_set("persist.vendor.hwsync.fbuffer.size", "");
    }

    audio_proxy_pipeline_t* mPipeline = nullptr;
    audio_proxy_stream_t* mPlain = nullptr;
    audio_proxy_stream_t* mTunnel = nullptr;
    bool mMetFault = false;  // of the last call
};

class AllocationFaultTest : public testing::TestWithParam<bool> {
protected:
    AllocationFaultTest() {
        __android_log_set_logger([](const __android_log_message*) {});
    }
    ~AllocationFaultTest() override { __android_log_set_logger(nullptr); }
};

TEST_P(AllocationFaultTest, EachEndsInADocumentedResultAndLosesNothing) {
#ifdef STREAMPROXY_NEW_IS_TAKEN
    GTEST_SKIP() << "this sanitizer makes every allocation itself";
#endif
    Life().run();  // what is kept for the life of the process is made here
    long nth = 1;
    for (bool failed = true; failed && !HasFailure(); ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        const long atRest = FaultInjection::liveAllocations();
        FaultInjection::failAllocation(nth, GetParam());
        Life().run();
        failed = FaultInjection::hasFailed();
        FaultInjection::failNothing();
        EXPECT_EQ(atRest, FaultInjection::liveAllocations());
    }
    RecordProperty("allocations", std::to_string(nth - 2));
    EXPECT_GT(nth, 60) << "a life that hardly allocates shows nothing";
}

INSTANTIATE_TEST_SUITE_P(, AllocationFaultTest, testing::Bool(), [](const auto& instance) {
    return instance.param ? "WithAllBehindIt" : "Alone";
});

}  // namespace
