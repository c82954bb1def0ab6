// The smallest host in C++. It is linked to the library, fades a 32-bit tone out on one stream, and
// shows the level of each tenth of a second of the mix.

#include <streamproxy.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr audio_proxy_config_t kMix = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                       STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr audio_proxy_config_t kSource = {48000, STREAMPROXY_FORMAT_PCM_32_BIT,
                                          STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr double kFullScale = 1 << 27;  // of a 32-bit sample
constexpr size_t kBlockFrames = 960;

/** Hears the mix on the mixer's thread: keeps levels, in dB below full scale. */
class Meter {
public:
    // The mixer mixes on when this returns, so it takes as long as a device would.
    static int hear(void* cookie, void* buffer, size_t byteCount) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(1'000'000'000) *
                                    (byteCount / 2 / sizeof(int16_t)) / kMix.sample_rate);
        static_cast<Meter*>(cookie)->take(static_cast<const int16_t*>(buffer),
                                          byteCount / sizeof(int16_t));
        return 0;
    }
    // Only after the output is unregistered: no callback runs then.
    const std::vector<double>& levels() const { return mLevels; }

private:
    void take(const int16_t* samples, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            mPeak = std::max(mPeak, std::abs(samples[i]));
            if (++mSeen % (kMix.sample_rate / 10 * 2) == 0) {
                mLevels.push_back(20 * std::log10(std::max(mPeak, 1) / 32768.0));
                mPeak = 0;
            }
        }
    }

    std::vector<double> mLevels;
    size_t mSeen = 0;
    int mPeak = 0;
};

struct DestroyPipeline {
    void operator()(audio_proxy_pipeline_t* pipeline) const {
        destroy_audio_proxy_pipeline(pipeline);
    }
};
struct DestroyStream {
    void operator()(audio_proxy_stream_t* stream) const { destroy_audio_proxy_stream(stream); }
};
using Pipeline = std::unique_ptr<audio_proxy_pipeline_t, DestroyPipeline>;
using Stream = std::unique_ptr<audio_proxy_stream_t, DestroyStream>;

/** 20 ms of a tone of 440 Hz, from `firstFrame` on. */
std::vector<int32_t> tone(size_t firstFrame) {
    std::vector<int32_t> samples(kBlockFrames * 2);
    for (size_t i = 0; i < samples.size(); ++i) {
        const size_t frame = firstFrame + i / 2;
        const double time = static_cast<double>(frame) / kSource.sample_rate;
        const double value = 0.5 * std::sin(2 * std::numbers::pi * 440 * time);
        samples[i] = static_cast<int32_t>(value * kFullScale);
    }
    return samples;
}

}  // namespace

int main() {
    Meter meter;
    const Pipeline pipeline(create_audio_proxy_pipeline());
    if (audio_proxy_pipeline_register_output(pipeline.get(), &kMix, &meter, &Meter::hear) != 0) {
        fprintf(stderr, "host_cpp: the output is refused\n");
        return 1;
    }
    Stream stream(create_audio_proxy_stream(&kSource));
    for (size_t block = 0; block < 75; ++block) {
        if (block == 25) {
            stream->setVolume(0.1F, 0.1F);  // a ramp as long as the stream's buffer
        }
        const std::vector<int32_t> samples = tone(block * kBlockFrames);
        const auto byteCount = samples.size() * sizeof(samples[0]);
        if (stream->write(samples.data(), byteCount) != static_cast<int>(byteCount)) {
            fprintf(stderr, "host_cpp: the mixer made no room for a second\n");
            return 1;
        }
    }
    stream.reset();
    audio_proxy_pipeline_unregister_output(pipeline.get(), &meter, &Meter::hear);
    for (const double level : meter.levels()) {
        printf("%6.1f dB  %.*s\n", level, static_cast<int>(60 + level),
               std::string(60, '#').c_str());
    }
    return meter.levels().size() < 14 ? 1 : 0;
}
