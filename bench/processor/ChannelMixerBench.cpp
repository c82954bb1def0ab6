// Compares the change of channels with its definition as a loop, and with memcpy() of its output. A
// unit is a frame.
#include "processor/ChannelMixer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"

namespace {

using android::ChannelMixer;

constexpr size_t kOutChannels = 2;

template <typename Sample>
struct Pass {
    Pass(size_t frameCount, size_t inChannelCount)
        : frames(frameCount),
          inChannels(inChannelCount),
          in(frameCount * inChannelCount),
          out(frameCount * kOutChannels) {
        std::iota(in.begin(), in.end(), Sample{1});
    }

    const size_t frames;
    const size_t inChannels;
    std::vector<Sample> in;
    std::vector<Sample> out;
};

template <typename Sample>
void runPlain(Pass<Sample>& pass) {
    for (size_t frame = 0; frame < pass.frames; ++frame) {
        for (size_t channel = 0; channel < kOutChannels; ++channel) {
            pass.out[frame * kOutChannels + channel] =
                channel < pass.inChannels ? pass.in[frame * pass.inChannels + channel] : Sample{0};
        }
    }
}

template <typename Sample>
void addAll(Duel& duel, size_t frames, uint32_t inMask, audio_format_t format) {
    const size_t inChannels = audio_channel_count_from_out_mask(inMask);
    const auto mixer = std::make_shared<ChannelMixer>(inMask, AUDIO_CHANNEL_OUT_STEREO, format);
    const auto pass = std::make_shared<Pass<Sample>>(frames, inChannels);
    const auto other = std::make_shared<Pass<Sample>>(frames, inChannels);
    const auto run = [mixer, pass] {
        mixer->adjust(pass->out.data(), pass->in.size() * sizeof(Sample),
                      static_cast<void*>(pass->in.data()));
    };
    run();
    runPlain(*other);
    if (pass->out != other->out) {
        throw std::logic_error("the channel mixer and its definition differ");
    }
    const auto units = static_cast<double>(frames);
    duel.add("channels", units, run);
    duel.add("plain", units, [other] { runPlain(*other); });
    const auto copy = std::make_shared<std::vector<Sample>>(pass->out);
    duel.add("memcpy", units, [other, copy] {
        memcpy(other->out.data(), copy->data(), copy->size() * sizeof(Sample));
    });
}

}  // namespace

void registerBenchmarks() {
    for (const size_t frames : {1U, 63U, 441U, 960U}) {
        const std::string size = "/" + std::to_string(frames);
        for (const uint32_t mask : {0x1U, 0x3FU}) {
            const std::string name =
                "channels/" + std::to_string(audio_channel_count_from_out_mask(mask)) + "to2";
            registerDuel(name + "/16" + size, [=](Duel& duel) {
                addAll<int16_t>(duel, frames, mask, AUDIO_FORMAT_PCM_16_BIT);
            });
            registerDuel(name + "/32" + size, [=](Duel& duel) {
                addAll<int32_t>(duel, frames, mask, AUDIO_FORMAT_PCM_32_BIT);
            });
        }
    }
}
