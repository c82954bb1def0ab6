// A stream between any two configurations, in blocks of any size: refused as documented, or every
// frame comes out once and in order, and as many as the ratio says if the rate changes.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "fuzz/support/Fuzzing.h"
#include "interface/streamproxy.h"
#include "stream/AudioStream.h"

using namespace android;

namespace {

constexpr uint32_t kMinRate = STREAMPROXY_MIN_SAMPLE_RATE;
constexpr uint32_t kMaxRate = STREAMPROXY_MAX_SAMPLE_RATE;
constexpr uint32_t kRates[] = {0,     1,     kMinRate, 8000,  11025,  16000,    22050,     32000,
                               44100, 48000, 88200,    96000, 192000, kMaxRate, 0x7fffffff};

struct Config {
    uint32_t rate;
    audio_format_t format;
    uint32_t mask;

    explicit Config(FuzzedDataProvider& data)
        : rate(data.PickValueInArray(kRates)),
          format(static_cast<audio_format_t>(
              data.PickValueInArray<uint32_t>({1, 3, 1, 3, 0, 2, 4, 6}))),
          mask(data.PickValueInArray<uint32_t>({3, 3, 1, 0x3f, 0, 0x80000001})) {}
    bool isMixable() const { return (format == 1 || format == 3) && rate > 0; }
};

/** Sample `index` of a 16-bit ramp that names its frame, in the stream's format. */
void putSample(uint8_t* at, audio_format_t format, size_t index) {
    const auto value = static_cast<int16_t>(index % 4096 + 1);
    if (format == AUDIO_FORMAT_PCM_16_BIT) {
        memcpy(at, &value, sizeof(value));
    } else {
        const int32_t wide = value << 12;
        memcpy(at, &wide, sizeof(wide));
    }
}

int sampleAt(const uint8_t* at, audio_format_t format) {
    if (format == AUDIO_FORMAT_PCM_16_BIT) {
        int16_t value = 0;
        memcpy(&value, at, sizeof(value));
        return value;
    }
    int32_t value = 0;
    memcpy(&value, at, sizeof(value));
    return value >> 12;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t byteCount) {
    FuzzedDataProvider data(bytes, byteCount);
    const Config from(data);
    const Config to(data);
    const auto ringFrames = data.ConsumeIntegralInRange<uint32_t>(0, 5000);
    const sp<AudioStream> stream(
        new AudioStream(from.rate, from.format, from.mask, AUDIO_OUTPUT_FLAG_NONE, ringFrames));
    const bool isConfigured = stream->config(to.rate, to.format, to.mask) == OK;
    const auto channels = audio_channel_count_from_out_mask(from.mask);
    if (!from.isMixable() || !to.isMixable() || to.mask != 3 || channels == 0) {
        FUZZ_EXPECT(!isConfigured);
    } else if (ringFrames > 0) {
        const auto isConvertible = [](uint32_t rate) {
            return rate >= kMinRate && rate <= kMaxRate;
        };
        FUZZ_EXPECT(isConfigured ==
                    (from.rate == to.rate || (isConvertible(from.rate) && isConvertible(to.rate))));
    }
    if (!isConfigured || ringFrames == 0) {
        return 0;
    }
    const size_t frameSize = channels * audio_bytes_per_sample(from.format);
    const size_t outFrameSize = 2 * audio_bytes_per_sample(to.format);
    const double ratio = static_cast<double>(to.rate) / from.rate;
    // Output frames that a resampler owes, or gave early from its reserve: one input frame's worth,
    // and four.
    const double slack = from.rate == to.rate ? 0 : ratio + 5;
    size_t accepted = 0;
    size_t heard = 0;
    const auto pull = [&](uint32_t wanted) {
        const sp<FrameBuffer> mix(new FrameBuffer(to.format, 3, 2000, false, 0, 0));
        const int processed = stream->process(mix, wanted);
        FUZZ_EXPECT(processed >= 0 && processed <= static_cast<int>(wanted));
        FUZZ_EXPECT(mix->availableToRead() == static_cast<size_t>(processed));
        std::vector<uint8_t> out(2000 * outFrameSize);
        mix->read(out.data(), 2000);
        for (size_t i = 0; from.rate == to.rate && i < static_cast<size_t>(processed); ++i) {
            FUZZ_EXPECT(sampleAt(&out[i * outFrameSize], to.format) ==
                        static_cast<int>((heard + i) % 4096 + 1));
        }
        heard += static_cast<size_t>(processed);
        return processed;
    };
    stream->open();
    while (data.remaining_bytes() > 0 && heard < 8000) {
        // As much as surely fits: no write waits. A resampler gives early what it owes.
        const double gone = std::max(0.0, static_cast<double>(heard) - slack) / ratio;
        const auto held = static_cast<size_t>(std::max(0.0, static_cast<double>(accepted) - gone));
        const size_t room = ringFrames > held + 1 ? ringFrames - held - 1 : 0;
        const size_t frames = std::min(data.ConsumeIntegralInRange<size_t>(0, 2000), room);
        std::vector<uint8_t> input(frames * frameSize);
        for (size_t i = 0; i < frames * channels; ++i) {
            putSample(&input[i * frameSize / channels], from.format, accepted + i / channels);
        }
        FUZZ_EXPECT(stream->write(input.data(), input.size()) == static_cast<int>(input.size()));
        accepted += frames;
        pull(data.ConsumeIntegralInRange<uint32_t>(0, 2000));
    }
    for (int idle = 0; idle < 4;) {
        idle = pull(2000) > 0 ? 0 : idle + 1;
    }
    const double due = static_cast<double>(accepted) * ratio;
    // A stage before the resampler counts input frames, the resampler output frames: some may stay
    // in the buffer between them when the source ends.
    const bool mayKeep = from.rate != to.rate && (from.format != 1 || from.mask != to.mask);
    const double kept = mayKeep ? ringFrames * ratio : 0;
    const double off = static_cast<double>(heard) - due;
    if (off > slack || off < -slack - kept) {
        fprintf(stderr, "%u to %u Hz, formats %x and %x, mask %x, ring of %u: %zu in, %zu out\n",
                from.rate, to.rate, from.format, to.format, from.mask, ringFrames, accepted, heard);
        abort();
    }
    return 0;
}
