// The smallest host of a tunnel stream. It makes bursts of a tone, writes them against the AV-sync
// clock 1, plays them to their end, and keeps what it wrote in a file:
//
//     tunnel RECORDING.hws
//     streamproxy hwsync inspect RECORDING.hws --rate 48000

#include <streamproxy.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kRateHz = 48000;
constexpr uint32_t kBurstMs = 20;
constexpr size_t kBurstFrames = kRateHz * kBurstMs / 1000;
constexpr uint32_t kSeconds = 2;

constexpr audio_proxy_config_t kMix = {kRateHz, STREAMPROXY_FORMAT_PCM_16_BIT,
                                       STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr audio_proxy_config_t kTunnel = {kRateHz, STREAMPROXY_FORMAT_PCM_16_BIT,
                                          STREAMPROXY_CHANNEL_MASK_STEREO,
                                          STREAMPROXY_FLAG_HW_AV_SYNC};

std::atomic<size_t> sHeardFrames{0};

// Keeps a device's pace. It sleeps until a time, not for one: delays would add up, and the stream
// would fall behind its clock and lose audio.
int hear(void* /*cookie*/, void* /*buffer*/, size_t byteCount) {
    static std::chrono::steady_clock::time_point sDue = std::chrono::steady_clock::now();
    const size_t frames = byteCount / 4;
    sHeardFrames += frames;
    sDue += std::chrono::nanoseconds(1'000'000'000) * frames / kRateHz;
    std::this_thread::sleep_until(sDue);
    return 0;
}

/** Most significant byte first, whatever the machine's order is. */
void appendBigEndian(std::vector<uint8_t>& bytes, uint64_t value, int byteCount) {
    for (int i = byteCount - 1; i >= 0; --i) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

/** A header of 20 bytes and its payload. The samples keep the machine's byte order. */
std::vector<uint8_t> makeBurst(uint64_t ptsNs, const std::vector<int16_t>& samples) {
    const size_t payloadBytes = samples.size() * sizeof(samples[0]);
    std::vector<uint8_t> burst;
    appendBigEndian(burst, 0x55550002, 4);    // 0x66660002 for free run
    appendBigEndian(burst, payloadBytes, 4);  // without the header
    appendBigEndian(burst, ptsNs, 8);         // when its first frame is due
    appendBigEndian(burst, 20, 4);            // where the payload begins
    burst.resize(burst.size() + payloadBytes);
    memcpy(burst.data() + 20, samples.data(), payloadBytes);
    return burst;
}

/** Burst number `burst` of a tone; silence after its end. */
std::vector<int16_t> tone(uint32_t burst) {
    std::vector<int16_t> samples(2 * kBurstFrames);
    const double amplitude = burst < kSeconds * 1000 / kBurstMs ? 8000 : 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const size_t frame = burst * kBurstFrames + i / 2;
        const double time = static_cast<double>(frame) / kRateHz;
        samples[i] = static_cast<int16_t>(amplitude * std::sin(2 * std::numbers::pi * 440 * time));
    }
    return samples;
}

bool fail(const char* what) {
    fprintf(stderr, "tunnel: %s\n", what);
    return false;
}

/** Writes the tone, and the silence that pushes its last frame out. */
bool play(audio_proxy_stream_t* stream, FILE* recording) {
    constexpr uint64_t kFirstPtsNs = 100'000'000;
    const uint32_t ringMs = audio_proxy_stream_get_latency(stream) / 1000 + 1;
    const uint32_t bursts = (kSeconds * 1000 + ringMs + kBurstMs - 1) / kBurstMs;
    for (uint32_t i = 0; i < bursts; ++i) {
        const auto burst = makeBurst(kFirstPtsNs + uint64_t{i} * kBurstMs * 1'000'000, tone(i));
        if (fwrite(burst.data(), 1, burst.size(), recording) != burst.size()) {
            return fail("cannot write the recording");
        }
        if (audio_proxy_stream_write(stream, burst.data(), burst.size()) !=
            static_cast<int>(burst.size())) {
            return fail("the stream took less than a burst");
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    FILE* const recording = argc == 2 ? fopen(argv[1], "wb") : nullptr;
    if (recording == nullptr) {
        fprintf(stderr, "usage: tunnel RECORDING.hws\n");
        return 1;
    }
    audio_proxy_pipeline_t* const pipeline = create_audio_proxy_pipeline();
    audio_proxy_pipeline_register_output(pipeline, &kMix, nullptr, &hear);
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&kTunnel);
    audio_proxy_stream_set_downstream_latency(stream, 40, 0);  // of what follows the callback
    audio_proxy_stream_set_parameters(stream, "hw_av_sync=1");
    const bool played = play(stream, recording);
    audio_proxy_stream_pause(stream);
    audio_proxy_stream_flush(stream);
    destroy_audio_proxy_stream(stream);
    audio_proxy_pipeline_unregister_output(pipeline, nullptr, &hear);
    destroy_audio_proxy_pipeline(pipeline);
    printf("%zu frames heard\n", sHeardFrames.load());
    return fclose(recording) == 0 && played && sHeardFrames > 0 ? 0 : 1;
}
