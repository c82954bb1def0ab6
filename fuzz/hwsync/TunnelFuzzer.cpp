// Bursts, whole and broken, in every cut: the parser finds the same as a plain model, and a tunnel
// stream's result does not depend on how the host cut its writes.

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/support/Fuzzing.h"
#include "hwsync/HwSyncBurstParser.h"
#include "stream/TunnelStream.h"
#include "tests/support/Bursts.h"
// Behind what it needs.
#include "tests/hwsync/BurstModel.h"

using namespace android;

namespace {

/** Positions of the clock, one for each query, repeated. */
std::vector<uint64_t> gPositionsNs;

class ScriptedBridge : public BridgeHalHidl {
public:
    uint32_t getHwSyncId() override { return 1; }
    int setLatency(uint64_t) override { return 0; }
    int start() override { return 0; }
    int pause() override { return 0; }
    int resume() override { return 0; }
    int stop() override { return 0; }
    int updateAudioPts(uint64_t) override { return 0; }
    int getSyncPts(uint64_t& ptsNs) override {
        ptsNs = gPositionsNs[mLooks++ % gPositionsNs.size()];
        return 0;
    }

private:
    size_t mLooks = 0;
};

class Recorder : public HwSyncBurstObserver {
public:
    int onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int byteCount,
                            unsigned long ptsNs) override {
        events.push_back({mode, byteCount, ptsNs, {}});
        return 0;
    }
    int onBurstPayloadParsed(const void* data, unsigned long byteCount) override {
        const auto* bytes = static_cast<const uint8_t*>(data);
        append(events.back().payload, Bytes(bytes, bytes + byteCount));
        return 0;
    }
    std::vector<BurstEvent> events;
};

Bytes makeStream(FuzzedDataProvider& data) {
    Bytes stream;
    for (int i = 0; i < 12 && data.remaining_bytes() > 0; ++i) {
        Bytes piece = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 60));
        if (data.ConsumeBool()) {
            const Header header{
                .ptsNs = data.ConsumeBool()
                             ? data.ConsumeIntegralInRange<uint64_t>(0, 4000) * 1'000'000
                             : data.ConsumeIntegral<uint64_t>(),
                .magic = data.PickValueInArray({0x55550002U, 0x66660002U, 0x55550001U}),
                .payloadOffset = data.PickValueInArray({20U, 20U, 20U, 0U, 19U, 21U, 90U, ~0U})};
            piece = makeBurst(header, piece);
            if (data.ConsumeIntegralInRange(0, 9) == 0) {
                const size_t at = data.ConsumeIntegralInRange<size_t>(0, piece.size() - 1);
                piece[at] = data.ConsumeIntegral<uint8_t>();
            }
        }
        append(stream, piece);
    }
    return stream;
}

/** Writes the stream in pieces of these lengths, repeated, each from its own block. */
template <typename Write>
void cut(const Bytes& stream, const std::vector<size_t>& lengths, Write write) {
    size_t at = 0;
    for (size_t i = 0; at < stream.size(); ++i) {
        const size_t length = std::min(lengths[i % lengths.size()], stream.size() - at);
        const auto piece = std::make_unique<uint8_t[]>(length);
        std::copy_n(stream.data() + at, length, piece.get());
        FUZZ_EXPECT(write(piece.get(), length) == static_cast<int>(length));
        at += length;
    }
}

std::vector<BurstEvent> parse(const Bytes& stream, const std::vector<size_t>& lengths) {
    const sp<HwSyncBurstParser> parser(new HwSyncBurstParser());
    const sp<Recorder> recorder(new Recorder());
    FUZZ_EXPECT(parser->registerObserver(recorder) == 0);
    cut(stream, lengths, [&](uint8_t* data, size_t size) { return parser->parse(data, size); });
    parser->unregisterObserver(recorder);
    return recorder->events;
}

/** A frame a ms: silence and drops of any length that the policy asks for stay small. */
Bytes play(const Bytes& stream, const std::vector<size_t>& lengths, bool hasClock) {
    const sp<TunnelStream> tunnel(new TunnelStream(1000, AUDIO_FORMAT_PCM_16_BIT,
                                                   AUDIO_CHANNEL_OUT_STEREO,
                                                   AUDIO_OUTPUT_FLAG_HW_AV_SYNC, 16384));
    if (hasClock) {
        tunnel->setParameters("hw_av_sync=1");
    }
    tunnel->open();
    cut(stream, lengths, [&](uint8_t* data, size_t size) { return tunnel->write(data, size); });
    Bytes heard(16384 * 4);
    const int byteCount = tunnel->read(heard.data(), heard.size());
    FUZZ_EXPECT(byteCount >= 0 && byteCount % 4 == 0);
    heard.resize(static_cast<size_t>(byteCount));
    tunnel->flush();
    tunnel->close();
    FUZZ_EXPECT(tunnel->getStrongCount() == 1);
    return heard;
}

}  // namespace

// Replaces the platform's.
int AVSyncBridgeFactoryHalHidl::createHwSyncBridge(unsigned int, unsigned int,
                                                   sp<BridgeHalHidl>& bridge) {
    bridge = new ScriptedBridge();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t byteCount) {
    FuzzedDataProvider data(bytes, byteCount);
    std::vector<size_t> lengths(data.ConsumeIntegralInRange<size_t>(1, 8));
    for (size_t& length : lengths) {
        length = data.ConsumeIntegralInRange<size_t>(1, 40);
    }
    gPositionsNs.assign(data.ConsumeIntegralInRange<size_t>(1, 4), 0);
    for (uint64_t& position : gPositionsNs) {
        position = data.ConsumeIntegralInRange<uint64_t>(0, 4000) * 1'000'000;
    }
    const bool hasClock = data.ConsumeBool();
    const Bytes stream = makeStream(data);
    if (stream.empty()) {
        return 0;
    }
    BurstModel model;
    model.run(stream);
    FUZZ_EXPECT(parse(stream, lengths) == model.events);
    FUZZ_EXPECT(play(stream, lengths, hasClock) == play(stream, {stream.size()}, hasClock));
    return 0;
}
