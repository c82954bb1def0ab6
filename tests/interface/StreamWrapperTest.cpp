#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "cutils/properties.h"
#include "interface/streamproxy.h"
#include "tests/support/AudioPathGuard.h"
#include "tests/support/Dump.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogCapture.h"
#include "tests/support/VirtualTime.h"

namespace {

constexpr audio_proxy_config_t kStereo48k = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                             STREAMPROXY_CHANNEL_MASK_STEREO, 0};
static_assert(sizeof(audio_proxy_config_t) == 16);

struct Cookie {
    std::atomic<int> calls{0};
    std::atomic<size_t> byteCount{0};
    std::atomic<int> lastSample{0};
};

int count(void* cookie, void* buffer, size_t byteCount) {
    auto* const heard = static_cast<Cookie*>(cookie);
    heard->byteCount = byteCount;
    heard->lastSample = static_cast<int16_t*>(buffer)[byteCount / 2 - 1];
    ++heard->calls;
    return -1;  // the result is nobody's business
}

class StreamWrapperTest : public testing::Test {
protected:
    ~StreamWrapperTest() override {
        audio_proxy_pipeline_unregister_output(mPipeline, &mHeard, &count);
        destroy_audio_proxy_pipeline(mPipeline);
        property_set("persist.vendor.hwsync.fbuffer.size", "");
    }
    static void writeBlock(audio_proxy_stream_t* stream, int16_t value) {
        const std::vector<int16_t> block(2 * 960, value);
        EXPECT_EQ(3840, audio_proxy_stream_write(stream, block.data(), 3840));
    }
    int listen(Cookie* cookie, const audio_proxy_config_t& config = kStereo48k) {
        return audio_proxy_pipeline_register_output(mPipeline, &config, cookie, &count);
    }
    std::string dump() {
        return textOf([this](int fd) { EXPECT_EQ(0, audio_proxy_pipeline_dump(mPipeline, fd)); });
    }

    audio_proxy_pipeline_t* mPipeline = create_audio_proxy_pipeline();
    Cookie mHeard;
};

TEST_F(StreamWrapperTest, CarriesAWriteToTheCallback) {
    audio_proxy_stream_t* const early = create_audio_proxy_stream(&kStereo48k);
    ASSERT_NE(nullptr, early);
    EXPECT_NE(std::string::npos, dump().find("Dst Sample Rate: 44100"));
    ASSERT_EQ(0, listen(&mHeard));
    EXPECT_NE(std::string::npos, dump().find("Dst Sample Rate: 48000"));
    writeBlock(early, 77);
    EXPECT_TRUE(eventually([this] { return mHeard.calls == 1; }));
    EXPECT_EQ(3840U, mHeard.byteCount);
    EXPECT_EQ(77, mHeard.lastSample);
    audio_proxy_stream_pause(early);
    writeBlock(early, 78);  // a write opens a paused stream
    EXPECT_TRUE(eventually([this] { return mHeard.calls == 2; }));
    EXPECT_EQ(0, destroy_audio_proxy_stream(early));
    EXPECT_EQ(std::string::npos, dump().find("AudioStream"));
}

TEST_F(StreamWrapperTest, KeepsOnePipelineUntilItIsDestroyed) {
    EXPECT_EQ(mPipeline, create_audio_proxy_pipeline());
    EXPECT_EQ(-EINVAL, destroy_audio_proxy_pipeline(nullptr));
    EXPECT_EQ(0, destroy_audio_proxy_pipeline(mPipeline));
    EXPECT_EQ(-EINVAL, destroy_audio_proxy_pipeline(mPipeline));
    EXPECT_EQ(0, destroy_audio_proxy_pipeline(nullptr));
    audio_proxy_pipeline_t* const gone = mPipeline;
    EXPECT_EQ(-EINVAL, audio_proxy_pipeline_register_output(gone, &kStereo48k, nullptr, &count));
    EXPECT_EQ(-EINVAL, audio_proxy_pipeline_unregister_output(gone, nullptr, &count));
    EXPECT_EQ(-EINVAL, audio_proxy_pipeline_set_parameters(gone, "a=b"));
    EXPECT_EQ("", dump());
    LogCapture log;
    EXPECT_EQ(nullptr, create_audio_proxy_stream(&kStereo48k));
    EXPECT_EQ(1U, log.messages().size());
    int untouched = 0;
    EXPECT_EQ(-EINVAL,
              destroy_audio_proxy_stream(reinterpret_cast<audio_proxy_stream_t*>(&untouched)));
    mPipeline = create_audio_proxy_pipeline();
}

TEST_F(StreamWrapperTest, NamesAnOutputByCookieAndCallback) {
    Cookie second;
    const audio_proxy_config_t otherFlags = {48000, 1, 3, 2};
    EXPECT_EQ(-EINVAL, audio_proxy_pipeline_register_output(mPipeline, nullptr, &mHeard, &count));
    EXPECT_EQ(0, listen(&mHeard));
    EXPECT_EQ(0, listen(&mHeard, otherFlags)) << "the pair is registered";
    EXPECT_EQ(-EINVAL, listen(&second, otherFlags));
    EXPECT_EQ(0, listen(&second));
    EXPECT_EQ(0, audio_proxy_pipeline_register_output(mPipeline, &kStereo48k, nullptr, nullptr));
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kStereo48k);
    writeBlock(stream, 1);
    EXPECT_TRUE(eventually([&] { return mHeard.calls == 1 && second.calls == 1; }));
    EXPECT_EQ(0, audio_proxy_pipeline_unregister_output(mPipeline, &second, &count));
    EXPECT_EQ(0, audio_proxy_pipeline_unregister_output(mPipeline, &second, &count));
    EXPECT_EQ(0, audio_proxy_pipeline_unregister_output(mPipeline, nullptr, nullptr));
    EXPECT_EQ(0, audio_proxy_pipeline_unregister_output(mPipeline, &mHeard, nullptr))
        << "another output, which is not registered";
    writeBlock(stream, 1);
    EXPECT_TRUE(eventually([this] { return mHeard.calls == 2; }));
    EXPECT_EQ(1, second.calls);
    destroy_audio_proxy_stream(stream);
}

TEST_F(StreamWrapperTest, RefusesStreamsItCannotMix) {
    LogCapture log;
    EXPECT_EQ(nullptr, create_audio_proxy_stream(nullptr));
    const audio_proxy_config_t hostile[] = {
        {48000, 0x01000000, 3, 0}, {48000, 5, 3, 0}, {0, 1, 3, 0}, {48000, 1, 0xFFFFFFFF, 0}};
    for (const auto& config : hostile) {
        EXPECT_EQ(nullptr, create_audio_proxy_stream(&config));
    }
    EXPECT_EQ(3U, log.count("E stream_wrapper: create_audio_proxy_stream, fail to cache stream "
                            "-22"));
}

TEST_F(StreamWrapperTest, ConvertsRatesAndChannelsUpToTheLimits) {
    constexpr uint32_t kMaxMask = 0x80000000 | ((1U << STREAMPROXY_MAX_CHANNEL_COUNT) - 1);
    constexpr uint32_t kMin = STREAMPROXY_MIN_SAMPLE_RATE;
    constexpr uint32_t kMax = STREAMPROXY_MAX_SAMPLE_RATE;
    for (const auto& [rate, isTaken] :
         {std::pair{kMin, true}, {kMax, true}, {kMin - 1, false}, {kMax + 1, false}}) {
        const audio_proxy_config_t config = {rate, STREAMPROXY_FORMAT_PCM_32_BIT, kMaxMask, 0};
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&config);
        EXPECT_EQ(isTaken, stream != nullptr) << rate;
        destroy_audio_proxy_stream(stream);
        EXPECT_EQ(isTaken ? 0 : -EINVAL, listen(&mHeard, {rate, STREAMPROXY_FORMAT_PCM_16_BIT,
                                                          STREAMPROXY_CHANNEL_MASK_STEREO, 0}))
            << rate;
        audio_proxy_pipeline_unregister_output(mPipeline, &mHeard, &count);
    }
}

TEST_F(StreamWrapperTest, RefusesNullHandles) {
    for (const int status :
         {audio_proxy_stream_set_parameters(nullptr, ""), audio_proxy_stream_open(nullptr),
          audio_proxy_stream_pause(nullptr), audio_proxy_stream_resume(nullptr),
          audio_proxy_stream_close(nullptr), audio_proxy_stream_flush(nullptr),
          audio_proxy_stream_write(nullptr, "", 1), audio_proxy_stream_set_volume(nullptr, 1, 1),
          audio_proxy_stream_set_downstream_latency(nullptr, 1, 1),
          audio_proxy_stream_dump(nullptr, 1), destroy_audio_proxy_stream(nullptr)}) {
        EXPECT_EQ(-EINVAL, status);
    }
    EXPECT_EQ(static_cast<uint32_t>(-EINVAL), audio_proxy_stream_get_latency(nullptr));
}

TEST_F(StreamWrapperTest, MakesATunnelStreamForHardwareAvSync) {
    audio_proxy_config_t config = kStereo48k;
    config.flags = STREAMPROXY_FLAG_HW_AV_SYNC;
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&config);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(0, audio_proxy_stream_set_downstream_latency(stream, 10, 0));
    EXPECT_EQ(0, audio_proxy_pipeline_set_parameters(mPipeline, "set_audio_delay=-20"));
    EXPECT_EQ(6, audio_proxy_stream_write(stream, "nonsense", 6));  // no header: skipped
    EXPECT_EQ(0, destroy_audio_proxy_stream(stream));
}

TEST_F(StreamWrapperTest, SizesEachStreamsBufferByTheProperty) {
    LogCapture log;
    const std::pair<const char*, uint32_t> latenciesUs[] = {
        {"", 41000}, {"4800", 100000}, {"12abc", 0}, {"0", 0}, {"64", 1000}, {"1000000", 20833000}};
    for (const auto& [frameCount, latencyUs] : latenciesUs) {
        property_set("persist.vendor.hwsync.fbuffer.size", frameCount);
        ASSERT_EQ(0, listen(&mHeard));
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kStereo48k);
        ASSERT_NE(nullptr, stream) << frameCount;
        EXPECT_EQ(latencyUs, audio_proxy_stream_get_latency(stream));
        EXPECT_EQ(-ENOSYS, audio_proxy_stream_set_downstream_latency(stream, 10, 0));
        destroy_audio_proxy_stream(stream);
    }
    for (const int frameCount : {12, 0}) {
        EXPECT_EQ(1U, log.count("W stream_wrapper: create_audio_proxy_stream, "
                                "persist.vendor.hwsync.fbuffer.size is " +
                                std::to_string(frameCount) + " frames, usable are 64 to 1000000"));
    }
    EXPECT_EQ(3U, log.messages().size()) << "and one for a ring of no frames";
}

TEST_F(StreamWrapperTest, AStreamDestroyedDuringACallOutlivesIt) {
    for (const uint32_t flags : {0U, STREAMPROXY_FLAG_HW_AV_SYNC}) {
        audio_proxy_config_t config = kStereo48k;
        config.flags = flags;
        audio_proxy_stream_t* const stream = create_audio_proxy_stream(&config);
        // Nobody consumes: the write waits for room.
        std::vector<uint8_t> burst(40'000);
        const uint8_t header[] = {0x55, 0x55, 0, 2, 0, 0, 0x90, 0, 0, 0,
                                  0,    0,    0, 0, 0, 0, 0,    0, 0, 20};
        std::copy(std::begin(header), std::end(header), burst.begin());
        std::thread writer([&] {
            while (audio_proxy_stream_write(stream, burst.data(), burst.size()) >= 0) {
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(0, destroy_audio_proxy_stream(stream));
        EXPECT_LT(timeOf([&writer] { writer.join(); }), kNoWait);
        EXPECT_EQ(-EINVAL, audio_proxy_stream_flush(stream));
        EXPECT_EQ(-EINVAL, destroy_audio_proxy_stream(stream));
    }
}

struct Forbidden {
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kStereo48k);
    std::atomic<bool> done{false};
    std::vector<int> results{};
    bool hasHandle = true;
    int streamStatus = -1;
};

int callForbidden(void* cookie, void*, size_t) {
    const AudioPathGuard::HostCode host;
    auto* const f = static_cast<Forbidden*>(cookie);
    if (f->done) {
        return 0;
    }
    f->results = {destroy_audio_proxy_pipeline(f->pipeline),
                  audio_proxy_pipeline_dump(f->pipeline, 1),
                  audio_proxy_pipeline_register_output(f->pipeline, &kStereo48k, nullptr, &count),
                  audio_proxy_pipeline_unregister_output(f->pipeline, f, &callForbidden),
                  audio_proxy_pipeline_set_parameters(f->pipeline, "a=b"),
                  destroy_audio_proxy_stream(f->stream)};
    f->hasHandle = create_audio_proxy_pipeline() || create_audio_proxy_stream(&kStereo48k);
    // A callback may call a stream's operations.
    f->streamStatus = audio_proxy_stream_flush(f->stream) | audio_proxy_stream_pause(f->stream);
    f->done = true;
    return 0;
}

TEST_F(StreamWrapperTest, RefusesCallsThatWouldWaitForTheirCallback) {
    LogCapture log;
    Forbidden forbidden;
    audio_proxy_pipeline_register_output(mPipeline, &kStereo48k, &forbidden, &callForbidden);
    writeBlock(forbidden.stream, 1);
    ASSERT_TRUE(eventually([&forbidden] { return forbidden.done.load(); }));
    EXPECT_EQ((std::vector<int>{-ENOSYS, 0, -ENOSYS, -ENOSYS, -ENOSYS, -ENOSYS}),
              forbidden.results);
    EXPECT_FALSE(forbidden.hasHandle);
    EXPECT_EQ(0, forbidden.streamStatus);
    const auto messages = log.messages();
    EXPECT_EQ(8, std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
                  return message.find("not allowed inside an output callback") != message.npos;
              }));
    audio_proxy_pipeline_unregister_output(mPipeline, &forbidden, &callForbidden);
    destroy_audio_proxy_stream(forbidden.stream);
}

int endTheProcess(void*, void*, size_t) {
    const AudioPathGuard::HostCode host;
    exit(7);
}

TEST_F(StreamWrapperTest, AProcessCanEndInsideACallback) {
#ifdef STREAMPROXY_EMULATOR
    GTEST_SKIP() << "the test starts its own program anew, which takes an emulator here";
#endif
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            audio_proxy_pipeline_register_output(mPipeline, &kStereo48k, nullptr, &endTheProcess);
            writeBlock(create_audio_proxy_stream(&kStereo48k), 1);
            std::this_thread::sleep_for(std::chrono::seconds(10));
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(StreamWrapperTest, DestroyingAStreamClosesItFirst) {
    // Without an output nothing is consumed: closing waits its second for the mixer, then goes on.
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kStereo48k);
    writeBlock(stream, 1);
    const auto waited = timeOf([stream] { EXPECT_EQ(0, destroy_audio_proxy_stream(stream)); });
    EXPECT_GE(waited, std::chrono::seconds(1));
    EXPECT_LT(waited, std::chrono::seconds(1) + kNoWait);
}

TEST_F(StreamWrapperTest, ControlCallsFromManyThreadsLeaveThePipelineWhole) {
    listen(&mHeard);
    const auto churn = [this](unsigned seed) {
        for (unsigned i = seed; i < seed + 60; ++i) {
            const audio_proxy_config_t config = {i % 3 == 0 ? 44100U : 48000U, 1,
                                                 i % 2 == 0 ? 3U : 1U, 0};
            audio_proxy_stream_t* const stream = create_audio_proxy_stream(&config);
            ASSERT_NE(nullptr, stream);
            std::thread control([stream] {
                audio_proxy_stream_set_volume(stream, 0.5F, 0.25F);
                audio_proxy_stream_flush(stream);
                audio_proxy_stream_pause(stream);
            });
            EXPECT_EQ(8, audio_proxy_stream_write(stream, "8 bytes", 8));
            audio_proxy_pipeline_set_parameters(mPipeline, "set_audio_delay=5");
            dump();
            control.join();
            audio_proxy_stream_flush(stream);
            destroy_audio_proxy_stream(stream);
        }
    };
    std::thread other(churn, 1);
    churn(0);
    other.join();
    EXPECT_EQ(std::string::npos, dump().find("AudioStream"));
}

}  // namespace
