// The kernels of the last stage beside plain loops, a media library's mixer and memcpy().
#include <SDL.h>

#include <algorithm>
#include <array>
#include <boost/align/aligned_allocator.hpp>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "bench/processor/textbook.h"
#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"
#include "processor/VolumeKernels.h"

namespace {

using android::InstructionSet;
using android::VolumeOp;

/** One pass's arguments; ramps start again at each. */
template <typename TO, typename TI>
struct Pass {
    explicit Pass(size_t frameCount) : frames(frameCount), in(2 * frames), out(2 * frames) {
        std::minstd_rand random(1);
        for (TI& sample : in) {
            sample = static_cast<TI>(random() * 2U);
        }
        out.assign(out.size(), 5);
    }
    void restartRamp() {
        position = {1 << 28, 1 << 27};
        increment = {-70'000, 60'000};
    }

    // Aligned to cache lines, as the library's own blocks are: a vector across two lines costs more
    // than the computation.
    template <typename T>
    using Samples = std::vector<T, boost::alignment::aligned_allocator<T, 64>>;

    size_t frames;
    Samples<TI> in;
    Samples<TO> out;
    std::array<short, 2> volume{3000, 1500};
    std::array<int, 2> position{};
    std::array<int, 2> increment{};
};

template <typename TO, typename TI>
void runKernel(Pass<TO, TI>& pass, VolumeOp kernel, bool ramp) {
    pass.restartRamp();
    kernel(pass.out.data(), pass.frames, pass.in.data(), ramp, pass.position.data(),
           pass.increment.data(), pass.volume.data());
}

template <typename TO, typename TI, typename Plain>
void runPlain(Pass<TO, TI>& pass, Plain plain, bool ramp) {
    pass.restartRamp();
    plain(pass.out.data(), pass.frames, pass.in.data(), ramp ? 1 : 0, pass.position.data(),
          pass.increment.data(), pass.volume.data());
}

/** Compares the kernel with its definition as a loop; throws if their results differ. */
template <typename TO, typename TI, typename Plain>
void addPlain(Duel& duel, size_t frames, bool ramp, const std::string& name, Plain plain) {
    const VolumeOp kernel = android::volumeKernel<0, TO, TI>(android::widestInstructionSet());
    const auto pass = std::make_shared<Pass<TO, TI>>(frames);
    const auto other = std::make_shared<Pass<TO, TI>>(frames);
    runKernel(*pass, kernel, ramp);
    runPlain(*other, plain, ramp);
    if (pass->out != other->out) {
        throw std::logic_error("the kernel and " + name + " differ");
    }
    const auto units = static_cast<double>(frames);
    duel.add("kernel", units, [pass, kernel, ramp] { runKernel(*pass, kernel, ramp); });
    // On the same samples: the buffers' offset within a page costs more than the loop.
    duel.add(name, units, [pass, plain, ramp] { runPlain(*pass, plain, ramp); });
}

void addTextbook(Duel& duel, size_t frames) {
    const auto pass = std::make_shared<Pass<int16_t, int16_t>>(frames);
    duel.add("textbook", static_cast<double>(frames), [pass] {
        textbookMix16(pass->out.data(), 2 * pass->frames, pass->in.data(), pass->volume[0]);
    });
}

void addMixerOfMediaLibrary(Duel& duel, size_t frames) {
    const auto pass = std::make_shared<Pass<int16_t, int16_t>>(frames);
    duel.add("sdl2", static_cast<double>(frames), [pass] {
        SDL_MixAudioFormat(reinterpret_cast<Uint8*>(pass->out.data()),
                           reinterpret_cast<const Uint8*>(pass->in.data()), AUDIO_S16SYS,
                           static_cast<Uint32>(4 * pass->frames), SDL_MIX_MAXVOLUME / 2);
    });
}

void addRampFloor(Duel& duel, size_t frames, bool wide) {
    const auto pass = std::make_shared<Pass<int16_t, int16_t>>(frames);
    pass->restartRamp();
    duel.add("floor", static_cast<double>(frames), [pass, wide] {
        (wide ? rampFloorAvx2 : rampFloorBaseline)(pass->out.data(), 2 * pass->frames,
                                                   pass->in.data(), pass->position.data(),
                                                   pass->increment.data());
    });
}

void addMemcpy(Duel& duel, size_t frames) {
    const auto pass = std::make_shared<Pass<int16_t, int16_t>>(frames);
    duel.add("memcpy", static_cast<double>(frames),
             [pass] { memcpy(pass->out.data(), pass->in.data(), 4 * pass->frames); });
}

}  // namespace

void registerBenchmarks() {
    const bool wide = android::widestInstructionSet() == InstructionSet::kAvx2;
    for (const size_t frames : {1U, 63U, 441U, 900U, 960U, 4096U}) {
        const std::string size = "/" + std::to_string(frames);
        for (const bool ramp : {false, true}) {
            const std::string name = ramp ? "/ramp" + size : "/none" + size;
            registerDuel("kernel/16to16" + name, [=](Duel& duel) {
                addPlain<short, short>(duel, frames, ramp, "plain", plain16to16Avx2);
                addTextbook(duel, frames);
                addMixerOfMediaLibrary(duel, frames);
                addMemcpy(duel, frames);
                if (ramp) {
                    addRampFloor(duel, frames, wide);
                }
            });
            registerDuel("kernel/32to16" + name, [=](Duel& duel) {
                addPlain<short, int>(duel, frames, ramp, "plain", plain32to16Avx2);
            });
            registerDuel("kernel/16to32" + name, [=](Duel& duel) {
                addPlain<int, short>(duel, frames, ramp, "plain",
                                     wide ? plain16to32Avx2 : plain16to32Baseline);
            });
            registerDuel("kernel/32to32" + name, [=](Duel& duel) {
                addPlain<int, int>(duel, frames, ramp, "plain",
                                   wide ? plain32to32Avx2 : plain32to32Baseline);
            });
        }
    }
}
