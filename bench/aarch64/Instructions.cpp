// Runs each piece of work once for a number of frames and once for twice as many, between calls of
// instructionsMark(). An emulator logs every instruction; those between the marks are counted:
// see scripts/instructions.py. Linked statically, so that little else runs.
#include <audio_utils/resampler.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "buffer/FrameBuffer.h"
#include "processor/ChannelMixer.h"
#include "processor/VolumeKernels.h"

/** Found in the log by its name. */
extern "C" __attribute__((noinline)) void instructionsMark() {
    asm volatile("" ::: "memory");
}

namespace {

using android::FrameBuffer;
using android::InstructionSet;
using android::sp;

constexpr size_t kFrames = 960;  // a multiple of every vector's

/** `run` processes so many frames; a warm run comes first. */
void measure(const std::string& name, const std::function<void(size_t frames)>& run,
             size_t frames = kFrames) {
    run(frames);
    instructionsMark();
    run(frames);
    instructionsMark();
    run(2 * frames);
    instructionsMark();
    printf("%zu %s\n", frames, name.c_str());
}

template <int MixType, typename TO, typename TI>
void measureKernel(const std::string& name) {
    std::vector<TI> in(4 * kFrames, 1000);
    std::vector<TO> out(4 * kFrames, 5);
    for (const bool ramp : {false, true}) {
        measure(name + (ramp ? ", ramp" : ", no ramp"), [&](size_t frames) {
            int position[2] = {1 << 28, 1 << 27};
            int increment[2] = {-70'000, 60'000};
            short volume[2] = {3000, 1500};
            android::volumeKernel<MixType, TO, TI>(android::widestInstructionSet())(
                out.data(), frames, in.data(), ramp, position, increment, volume);
        });
    }
}

template <int MixType>
void measureKernels(const std::string& type) {
    measureKernel<MixType, int16_t, int16_t>("volume 16 to 16, " + type);
    measureKernel<MixType, int32_t, int16_t>("volume 16 to 32, " + type);
    measureKernel<MixType, int16_t, int32_t>("volume 32 to 16, " + type);
    measureKernel<MixType, int32_t, int32_t>("volume 32 to 32, " + type);
}

void measureChannels(const std::string& name, uint32_t inMask, audio_format_t format) {
    android::ChannelMixer mixer(inMask, AUDIO_CHANNEL_OUT_STEREO, format);
    const size_t inBytes =
        audio_channel_count_from_out_mask(inMask) * audio_bytes_per_sample(format);
    std::vector<int32_t> in(kFrames * 2 * inBytes / sizeof(int32_t), 3);
    std::vector<int32_t> out(kFrames * 2 * 2);
    measure("channels " + name, [&](size_t frames) {
        mixer.adjust(out.data(), frames * inBytes, static_cast<void*>(in.data()));
    });
}

void measureConverter(uint32_t inRate, uint32_t outRate) {
    resampler_itfe* converter = nullptr;
    if (create_resampler(inRate, outRate, 2, 4, nullptr, &converter) != 0) {
        throw std::runtime_error("no converter");
    }
    std::vector<int16_t> in(8 * kFrames, 1000);
    std::vector<int16_t> out(8 * kFrames);
    // Output frames, 20 ms of them: whole periods of the rates.
    const auto run = [&](size_t frames) {
        size_t taken = frames * inRate / outRate;
        size_t made = frames;
        converter->resample_from_input(converter, in.data(), &taken, out.data(), &made);
        if (made != frames) {
            throw std::logic_error("the converter made fewer frames");
        }
    };
    measure("resampler " + std::to_string(inRate) + " to " + std::to_string(outRate), run,
            outRate / 50);
    release_resampler(converter);
}

void measureRing() {
    const sp<FrameBuffer> ring(new FrameBuffer(AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                               2 * kFrames, false, 0, 0));
    std::vector<uint32_t> frames(2 * kFrames, 7);
    measure("ring, in and out", [&](size_t count) {
        ring->write(frames.data(), count);
        ring->read(frames.data(), count);
        ring->reset();  // no run crosses the ring's end
    });
    measure("ring, in and out one by one", [&](size_t count) {
        for (size_t i = 0; i < count; ++i) {
            ring->write(frames.data(), 1);
            ring->read(frames.data(), 1);
        }
        ring->reset();
    });
}

}  // namespace

int main() try {
    measureKernels<0>("adding");
    measureKernels<2>("overwriting");
    measureChannels("1 to 2, 16 bits", 1, AUDIO_FORMAT_PCM_16_BIT);
    measureChannels("1 to 2, 32 bits", 1, AUDIO_FORMAT_PCM_32_BIT);
    measureChannels("6 to 2, 16 bits", 0x3F, AUDIO_FORMAT_PCM_16_BIT);
    measureChannels("6 to 2, 32 bits", 0x3F, AUDIO_FORMAT_PCM_32_BIT);
    measureConverter(48000, 44100);
    measureConverter(44100, 48000);
    measureConverter(96000, 48000);
    measureConverter(32000, 48000);
    measureRing();
} catch (const std::exception& fault) {
    fprintf(stderr, "%s\n", fault.what());
    return 1;
}
