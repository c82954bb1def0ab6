#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <thread>
#include <utility>
#include <vector>

#include "interface/streamproxy.h"
#include "tests/support/AudioPathGuard.h"
#include "tests/support/Bursts.h"
#include "tests/support/VirtualTime.h"

namespace {

struct Case {
    audio_proxy_config_t stream;
    audio_proxy_config_t mix;
};

/** A host that plays a stream to its end as the host guide tells. */
class Host {
public:
    explicit Host(const Case& configs) : mConfigs(configs) {
        audio_proxy_pipeline_register_output(mPipeline, &mConfigs.mix, this, &hear);
        mStream = create_audio_proxy_stream(&mConfigs.stream);
    }

    /** The ring, and where the rate differs 20 ms for the converter and a ring for each stage
     *  before it. */
    size_t silenceFrameCount() const {
        const audio_proxy_config_t& stream = mConfigs.stream;
        const size_t ring =
            static_cast<size_t>(audio_proxy_stream_get_latency(mStream) / 1000 + 1) *
            stream.sample_rate / 1000;
        if (stream.sample_rate == mConfigs.mix.sample_rate) {
            return ring;
        }
        const size_t stages = (stream.channel_mask != STREAMPROXY_CHANNEL_MASK_STEREO ? 1 : 0) +
                              (stream.format != STREAMPROXY_FORMAT_PCM_16_BIT ? 1 : 0);
        return ring * (1 + stages) + stream.sample_rate / 50;
    }

    /** `frames` of a loud constant, then silence. Returns the mix up to its last sound. */
    std::vector<int32_t> play(size_t frames, size_t silentFrames) {
        write(frames, 8000);
        write(silentFrames, 0);
        audio_proxy_stream_pause(mStream);
        audio_proxy_stream_flush(mStream);
        mDestroyTime = timeOf([this] { destroy_audio_proxy_stream(mStream); });
        // All callbacks that the stream is part of have returned.
        std::vector<int32_t> heard;
        std::swap(heard, mHeard);
        audio_proxy_pipeline_unregister_output(mPipeline, this, &hear);
        destroy_audio_proxy_pipeline(mPipeline);
        while (!heard.empty() && heard.back() == 0) {
            heard.pop_back();
        }
        return heard;
    }
    std::chrono::nanoseconds destroyTime() const { return mDestroyTime; }

private:
    // Ten times as fast as a device.
    static int hear(void* cookie, void* buffer, size_t byteCount) {
        const AudioPathGuard::HostCode hostCode;
        auto* const host = static_cast<Host*>(cookie);
        const bool is16Bit = host->mConfigs.mix.format == STREAMPROXY_FORMAT_PCM_16_BIT;
        const size_t sampleCount = byteCount / (is16Bit ? 2 : 4);
        for (size_t i = 0; i < sampleCount; ++i) {
            host->mHeard.push_back(is16Bit ? static_cast<int16_t*>(buffer)[i]
                                           : static_cast<int32_t*>(buffer)[i]);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100'000) * (sampleCount / 2) /
                                    host->mConfigs.mix.sample_rate);
        return 0;
    }
    void write(size_t frameCount, int16_t value) {
        const audio_proxy_config_t& stream = mConfigs.stream;
        const size_t channels = static_cast<size_t>(std::popcount(stream.channel_mask));
        const size_t limit = stream.sample_rate / 50;
        for (size_t done = 0; done < frameCount;) {
            const size_t samples = std::min<size_t>(limit, frameCount - done) * channels;
            const std::vector<int16_t> narrow(samples, value);
            const std::vector<int32_t> wide(samples, value * 4096);
            const bool is16Bit = stream.format == STREAMPROXY_FORMAT_PCM_16_BIT;
            const void* data = is16Bit ? static_cast<const void*>(narrow.data()) : wide.data();
            Bytes burst;
            size_t byteCount = samples * (is16Bit ? 2 : 4);
            if ((stream.flags & STREAMPROXY_FLAG_HW_AV_SYNC) != 0) {
                const auto* const bytes = static_cast<const uint8_t*>(data);
                burst = makeBurst({}, Bytes(bytes, bytes + byteCount));
                data = burst.data();
                byteCount = burst.size();
            }
            ASSERT_EQ(static_cast<int>(byteCount),
                      audio_proxy_stream_write(mStream, data, byteCount));
            done += samples / channels;
        }
    }

    const Case mConfigs;
    audio_proxy_pipeline_t* const mPipeline = create_audio_proxy_pipeline();
    audio_proxy_stream_t* mStream = nullptr;
    std::vector<int32_t> mHeard;
    std::chrono::nanoseconds mDestroyTime{};
};

constexpr uint32_t kTunnel = STREAMPROXY_FLAG_HW_AV_SYNC;
constexpr Case kCases[] = {
    {{48000, 1, 3, 0}, {48000, 1, 3, 0}},    // equal
    {{48000, 3, 1, 0}, {48000, 3, 3, 0}},    // 32 bits, mono, no converter
    {{44100, 1, 3, 0}, {48000, 1, 3, 0}},    // up
    {{4000, 1, 3, 0}, {48000, 1, 3, 0}},     // up, where the converter holds most
    {{96000, 1, 3, 0}, {44100, 3, 3, 0}},    // down
    {{8000, 1, 1, 0}, {48000, 1, 3, 0}},     // a stage before the converter
    {{4000, 3, 0x3F, 0}, {48000, 1, 3, 0}},  // two
    {{96000, 3, 1, 0}, {48000, 1, 3, 0}},    // two, which keep the blocks short
    {{22050, 1, 1, kTunnel}, {48000, 1, 3, 0}},
};

TEST(PlayToEnd, LosesNothingOfAnyStreamAndWaitsForNothing) {
    for (const Case& configs : kCases) {
        SCOPED_TRACE(testing::Message()
                     << configs.stream.sample_rate << " Hz, format " << configs.stream.format
                     << ", mask " << configs.stream.channel_mask << " to "
                     << configs.mix.sample_rate << " Hz");
        // Of lengths that end in different places of a block; one of 4000 Hz fills the ring to its
        // last frame.
        for (const size_t extra : {0U, 76U, 331U}) {
            const size_t frames = configs.stream.sample_rate / 10 + extra;
            Host reference(configs);
            const auto all = reference.play(frames, 2 * reference.silenceFrameCount());
            Host host(configs);
            EXPECT_EQ(all, host.play(frames, host.silenceFrameCount()));
            EXPECT_LT(host.destroyTime(), std::chrono::milliseconds(3)) << "for one callback";
            // Mono is heard on the left.
            EXPECT_GE((all.size() + 1) / 2 * configs.stream.sample_rate,
                      frames * configs.mix.sample_rate);
        }
    }
}

}  // namespace
