// Programs of exported calls with hostile arguments, on several streams: documented results, no
// crash, no hang, nothing left behind.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "cutils/properties.h"
#include "fuzz/support/Fuzzing.h"
#include "interface/streamproxy.h"

namespace {

constexpr size_t kMaxStreams = 4;
constexpr size_t kMaxHeldBytes = 1200;  // of a ring of 2000 frames of a byte or more: never full

struct Host {
    android::AudioPipeline* pipeline = nullptr;
    std::vector<std::pair<audio_proxy_stream_t*, size_t>> streams;  // and the bytes written
    int fd = open("/dev/null", O_WRONLY);
};

int hear(void* cookie, void*, size_t) {
    return cookie == nullptr ? -1 : 0;
}

/** A call returns 0 or more, or a status of the header. */
void expectDocumented(int status) {
    FUZZ_EXPECT(status >= 0 || status == -EINVAL || status == -ENODEV || status == -ENOSYS ||
                status == -ENOMEM);
}

audio_proxy_config_t makeConfig(FuzzedDataProvider& data) {
    constexpr uint32_t kNarrow = STREAMPROXY_FORMAT_PCM_16_BIT;
    return {data.PickValueInArray<uint32_t>({48000, 44100, 0, 1, STREAMPROXY_MIN_SAMPLE_RATE - 1,
                                             STREAMPROXY_MAX_SAMPLE_RATE + 1, 8000, 0xffffffff}),
            data.PickValueInArray<uint32_t>(
                {kNarrow, STREAMPROXY_FORMAT_PCM_32_BIT, kNarrow, 0, 2, 5, 0x1000000, 0xffffffff}),
            data.PickValueInArray<uint32_t>({STREAMPROXY_CHANNEL_MASK_STEREO,
                                             STREAMPROXY_CHANNEL_MASK_MONO, 0x3f, 0, 0xffffffff,
                                             0x80000003}),
            data.PickValueInArray<uint32_t>({0, STREAMPROXY_FLAG_HW_AV_SYNC, 0xffffffff})};
}

void callPipeline(Host& host, FuzzedDataProvider& data) {
    const audio_proxy_config_t config = makeConfig(data);
    void* const cookie = data.ConsumeBool() ? &host : nullptr;
    const auto callback = data.ConsumeIntegralInRange(0, 7) == 0 ? nullptr : &hear;
    // A foreign handle is refused.
    android::AudioPipeline* const pipeline = data.ConsumeIntegralInRange(0, 7) == 0
                                                 ? reinterpret_cast<android::AudioPipeline*>(&host)
                                                 : host.pipeline;
    switch (data.ConsumeIntegralInRange(0, 4)) {
        case 0:
            host.pipeline = create_audio_proxy_pipeline();
            FUZZ_EXPECT(host.pipeline != nullptr);
            break;
        case 1:
            expectDocumented(audio_proxy_pipeline_register_output(
                pipeline, data.ConsumeIntegralInRange(0, 7) == 0 ? nullptr : &config, cookie,
                callback));
            break;
        case 2:
            expectDocumented(audio_proxy_pipeline_unregister_output(pipeline, cookie, callback));
            break;
        case 3:
            expectDocumented(audio_proxy_pipeline_set_parameters(
                pipeline, data.ConsumeBool() ? data.ConsumeRandomLengthString(40).c_str()
                                             : "set_audio_delay=-20"));
            break;
        default:
            expectDocumented(
                audio_proxy_pipeline_dump(pipeline, data.ConsumeBool() ? host.fd : -1));
            break;
    }
}

void createStream(Host& host, FuzzedDataProvider& data) {
    property_set("persist.vendor.hwsync.fbuffer.size",
                 data.PickValueInArray({"", "2000", "2000", "0", "-1", "x", "99999999999"}));
    const audio_proxy_config_t config = makeConfig(data);
    audio_proxy_stream_t* const stream = create_audio_proxy_stream(&config);
    FUZZ_EXPECT(stream == nullptr || host.pipeline != nullptr);
    property_set("persist.vendor.hwsync.fbuffer.size", "2000");
    if (stream != nullptr) {
        host.streams.emplace_back(stream, 0);
    }
}

void destroyStream(Host& host, size_t index) {
    audio_proxy_stream_flush(host.streams[index].first);  // closing waits for held frames
    FUZZ_EXPECT(destroy_audio_proxy_stream(host.streams[index].first) == 0);
    host.streams.erase(host.streams.begin() + static_cast<ptrdiff_t>(index));
}

void callStream(Host& host, FuzzedDataProvider& data) {
    const auto index = data.ConsumeIntegralInRange<size_t>(0, host.streams.size() - 1);
    auto& [stream, written] = host.streams[index];
    switch (data.ConsumeIntegralInRange(0, 11)) {
        case 0:
            expectDocumented(audio_proxy_stream_open(stream));
            break;
        case 1:
            expectDocumented(audio_proxy_stream_pause(stream));
            break;
        case 2:
            expectDocumented(audio_proxy_stream_resume(stream));
            break;
        case 3:
            expectDocumented(audio_proxy_stream_flush(stream));
            written = 0;
            break;
        case 4:
            expectDocumented(audio_proxy_stream_set_volume(
                stream, data.ConsumeFloatingPoint<float>(), data.ConsumeFloatingPoint<float>()));
            break;
        case 5:
            expectDocumented(audio_proxy_stream_set_downstream_latency(
                stream, data.ConsumeIntegral<unsigned long>(), data.ConsumeIntegral<long>()));
            break;
        case 6:
            expectDocumented(audio_proxy_stream_set_parameters(
                stream, data.ConsumeRandomLengthString(30).c_str()));
            break;
        case 7:
            expectDocumented(audio_proxy_stream_set_parameters(stream, "hw_av_sync=3"));
            break;
        case 8:
            audio_proxy_stream_get_latency(stream);
            expectDocumented(audio_proxy_stream_dump(stream, host.fd));
            break;
        case 9:
            destroyStream(host, index);
            break;
        default: {
            const auto bytes =
                data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 300));
            if (written + bytes.size() <= kMaxHeldBytes && audio_proxy_stream_get_latency(stream)) {
                const int taken = audio_proxy_stream_write(
                    stream, bytes.empty() ? nullptr : bytes.data(), bytes.size());
                expectDocumented(taken);
                FUZZ_EXPECT(taken <= static_cast<int>(bytes.size()));
                written += bytes.size();
            }
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t byteCount) {
    FuzzedDataProvider data(bytes, byteCount);
    Host host;
    for (int i = 0; i < 40 && data.remaining_bytes() > 0; ++i) {
        if (data.ConsumeIntegralInRange(0, 3) == 0) {
            callPipeline(host, data);
        } else if (host.streams.size() < kMaxStreams && data.ConsumeBool()) {
            createStream(host, data);
        } else if (!host.streams.empty()) {
            callStream(host, data);
        }
    }
    FUZZ_EXPECT(create_audio_proxy_stream(nullptr) == nullptr);
    FUZZ_EXPECT(audio_proxy_stream_write(nullptr, &host, 1) == -EINVAL);
    while (!host.streams.empty()) {
        destroyStream(host, host.streams.size() - 1);
    }
    if (host.pipeline != nullptr) {
        FUZZ_EXPECT(destroy_audio_proxy_pipeline(host.pipeline) == 0);
        FUZZ_EXPECT(destroy_audio_proxy_pipeline(host.pipeline) == -EINVAL);
    }
    close(host.fd);
    return 0;
}
