// Compares the converter with five others, in stereo, in blocks of 20 ms; and in the same run its
// sound quality with the one that it is measured against. A unit is an output frame.
#include <audio_utils/resampler.h>
#include <samplerate.h>
#include <soxr.h>
#include <speex/speex_resampler.h>
#include <zita-resampler/resampler.h>

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"
#include "tests/platform/ResamplerFixture.h"
#include "tests/platform/Spectrum.h"

namespace {

using android::Pcm;
using android::RatePair;

constexpr int kSpeexQuality = 4;
constexpr double kRounding = 1e-3;  // of a latency in ns to input frames

/** Each converts interleaved stereo and returns the output frames made. */
class Ours {
public:
    explicit Ours(RatePair rates) {
        create_resampler(rates.in, rates.out, 2, 4, nullptr, &mHandle);
    }
    ~Ours() { release_resampler(mHandle); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    size_t convert(Pcm& in, Pcm& out) {
        size_t taken = in.size() / 2;
        size_t made = out.size() / 2;
        mHandle->resample_from_input(mHandle, in.data(), &taken, out.data(), &made);
        return made;
    }

private:
    resampler_itfe* mHandle = nullptr;
};

class Speex {
public:
    explicit Speex(RatePair rates) : Speex(rates, 2) {}
    Speex(RatePair rates, uint32_t channels)
        : mState(speex_resampler_init(channels, rates.in, rates.out, kSpeexQuality, nullptr)) {}
    ~Speex() { speex_resampler_destroy(mState); }
    Speex(const Speex&) = delete;
    Speex& operator=(const Speex&) = delete;
    size_t convert(Pcm& in, Pcm& out) { return convert(in, out, 2); }
    size_t convert(Pcm& in, Pcm& out, size_t channels) {
        auto taken = static_cast<spx_uint32_t>(in.size() / channels);
        auto made = static_cast<spx_uint32_t>(out.size() / channels);
        speex_resampler_process_interleaved_int(mState, in.data(), &taken, out.data(), &made);
        return made;
    }
    int inputLatency() const { return speex_resampler_get_input_latency(mState); }

private:
    SpeexResamplerState* const mState;
};

class Soxr {
public:
    explicit Soxr(RatePair rates) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_MQ, 0);
        mState = soxr_create(rates.in, rates.out, 2, nullptr, &io, &quality, nullptr);
    }
    ~Soxr() { soxr_delete(mState); }
    Soxr(const Soxr&) = delete;
    Soxr& operator=(const Soxr&) = delete;
    size_t convert(Pcm& in, Pcm& out) {
        size_t taken = 0;
        size_t made = 0;
        soxr_process(mState, in.data(), in.size() / 2, &taken, out.data(), out.size() / 2, &made);
        return made;
    }

private:
    soxr_t mState = nullptr;
};

/** With the conversion from and to 16 bits that its interface leaves to the caller. */
class SampleRate {
public:
    explicit SampleRate(RatePair rates)
        : mState(src_new(SRC_SINC_FASTEST, 2, nullptr)),
          mRatio(static_cast<double>(rates.out) / rates.in) {}
    ~SampleRate() { src_delete(mState); }
    SampleRate(const SampleRate&) = delete;
    SampleRate& operator=(const SampleRate&) = delete;
    size_t convert(Pcm& in, Pcm& out) {
        mIn.resize(in.size());
        mOut.resize(out.size());
        src_short_to_float_array(in.data(), mIn.data(), static_cast<int>(in.size()));
        SRC_DATA data = {};
        data.data_in = mIn.data();
        data.data_out = mOut.data();
        data.input_frames = static_cast<long>(in.size() / 2);
        data.output_frames = static_cast<long>(out.size() / 2);
        data.src_ratio = mRatio;
        src_process(mState, &data);
        src_float_to_short_array(mOut.data(), out.data(),
                                 static_cast<int>(2 * data.output_frames_gen));
        return static_cast<size_t>(data.output_frames_gen);
    }

private:
    SRC_STATE* const mState;
    const double mRatio;
    std::vector<float> mIn;
    std::vector<float> mOut;
};

/** In float from end to end: its interface has nothing else. */
class Zita {
public:
    explicit Zita(RatePair rates) { mState.setup(rates.in, rates.out, 2, 32); }
    size_t convert(Pcm& in, Pcm& out) {
        mIn.resize(in.size());
        mOut.resize(out.size());
        mState.inp_count = static_cast<unsigned>(in.size() / 2);
        mState.inp_data = mIn.data();
        mState.out_count = static_cast<unsigned>(out.size() / 2);
        mState.out_data = mOut.data();
        mState.process();
        return out.size() / 2 - mState.out_count;
    }

private:
    Resampler mState;
    std::vector<float> mIn;
    std::vector<float> mOut;
};

class SwResample {
public:
    explicit SwResample(RatePair rates) {
        AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        swr_alloc_set_opts2(&mState, &stereo, AV_SAMPLE_FMT_S16, static_cast<int>(rates.out),
                            &stereo, AV_SAMPLE_FMT_S16, static_cast<int>(rates.in), 0, nullptr);
        swr_init(mState);
    }
    ~SwResample() { swr_free(&mState); }
    SwResample(const SwResample&) = delete;
    SwResample& operator=(const SwResample&) = delete;
    size_t convert(Pcm& in, Pcm& out) {
        const auto* source = reinterpret_cast<const uint8_t*>(in.data());
        auto* target = reinterpret_cast<uint8_t*>(out.data());
        return static_cast<size_t>(swr_convert(mState, &target, static_cast<int>(out.size() / 2),
                                               &source, static_cast<int>(in.size() / 2)));
    }

private:
    SwrContext* mState = nullptr;
};

Pcm stereoTone(RatePair rates, size_t frames) {
    const Pcm mono = android::makeTone(997, rates.in, frames);
    Pcm stereo;
    for (const int16_t sample : mono) {
        stereo.insert(stereo.end(), {sample, sample});
    }
    return stereo;
}

/** In blocks of this many input frames. */
template <typename Converter>
void addConverter(Duel& duel, const std::string& name, RatePair rates, size_t frames) {
    const auto converter = std::make_shared<Converter>(rates);
    const auto in = std::make_shared<Pcm>(stereoTone(rates, frames));
    const auto out = std::make_shared<Pcm>(2 * (frames * rates.out / rates.in + 64));
    duel.add(name, static_cast<double>(frames) * rates.out / rates.in,
             [converter, in, out] { benchmark::DoNotOptimize(converter->convert(*in, *out)); });
}

std::string pairName(RatePair rates) {
    return std::to_string(rates.in) + "to" + std::to_string(rates.out);
}

/** Half a second of a tone through a converter of one channel, measured once it has settled. */
template <typename Convert>
android::Tone measurePair(RatePair rates, double frequencyHz, Convert convert) {
    const Pcm in = android::makeTone(frequencyHz, rates.in, rates.in / 2);
    const size_t settled = 200 * (static_cast<size_t>(rates.out) / rates.lower() + 1);
    return android::measureTone(convert(in), frequencyHz, rates.out, settled);
}

/** How a converter of one channel changes tones. */
struct Quality {
    template <typename Convert>
    Quality(RatePair rates, Convert convert)
        : speech(measurePair(rates, 997, convert)),
          high(measurePair(rates, 0.4 * rates.lower(), convert)),
          edge(measurePair(rates, 0.45 * rates.lower(), convert)),
          spurs(android::worstSpurs(rates, convert)) {}

    android::Tone speech;
    android::Tone high;  // at 0.8 of the lower Nyquist frequency
    android::Tone edge;  // at 0.9
    android::Spurs spurs;
};

/** Ours within its bounds, and beside speexdsp; the figures of both as counters. */
void measureQuality(benchmark::State& state, RatePair rates) {
    for ([[maybe_unused]] auto _ : state) {
        const Quality ours(
            rates, [rates](const Pcm& in) { return android::TestConverter(rates).convertAll(in); });
        const Quality speex(rates, [rates](Pcm in) {
            Pcm out(in.size() * rates.out / rates.in + 16);
            out.resize(Speex(rates, 1).convert(in, out, 1));
            return out;
        });
        android::TestConverter converter(rates);
        const double latency = 1e-9 * converter.handle()->delay_ns(converter.handle()) * rates.in;
        const double speexLatency = Speex(rates, 1).inputLatency();
        // With no tone above the band neither has aliases.
        Bounds bounds(state, "quality/" + pairName(rates));
        bounds.atLeast("snr 997 Hz", ours.speech.snrDb, 93);
        bounds.atLeast("snr 0.8", ours.high.snrDb, 90);
        bounds.atMost("level error 0.8", std::abs(ours.high.levelDb), 0.02);
        bounds.atLeast("level 0.9", ours.edge.levelDb, speex.edge.levelDb - 0.1);
        bounds.atMost("images", ours.spurs.keptDb, std::min(-80.0, speex.spurs.keptDb + 2));
        bounds.atMost("aliases", ours.spurs.foldedDb, std::min(-80.0, speex.spurs.foldedDb + 2));
        bounds.atMost("latency", latency, speexLatency + 4 + kRounding);
        state.counters["level 0.8"] = ours.high.levelDb;
        state.counters["speex snr 997 Hz"] = speex.speech.snrDb;
        state.counters["speex snr 0.8"] = speex.high.snrDb;
        state.counters["speex level 0.8"] = speex.high.levelDb;
        state.counters["speex level 0.9"] = speex.edge.levelDb;
        state.counters["speex images"] = speex.spurs.keptDb;
        state.counters["speex aliases"] = speex.spurs.foldedDb;
        state.counters["speex latency"] = speexLatency;
    }
}

}  // namespace

void registerBenchmarks() {
    for (const RatePair rates : {RatePair{48000, 44100}, RatePair{44100, 48000},
                                 RatePair{96000, 48000}, RatePair{32000, 48000}}) {
        registerDuel("resampler/" + pairName(rates), [rates](Duel& duel) {
            addConverter<Ours>(duel, "resampler", rates, rates.in / 50);
            addConverter<Speex>(duel, "speexdsp", rates, rates.in / 50);
            addConverter<Soxr>(duel, "soxr", rates, rates.in / 50);
            addConverter<SampleRate>(duel, "libsamplerate", rates, rates.in / 50);
            addConverter<Zita>(duel, "zita", rates, rates.in / 50);
            addConverter<SwResample>(duel, "swresample", rates, rates.in / 50);
        });
        for (const size_t frames : {31U, 441U}) {
            const auto setUp = [rates, frames](Duel& duel) {
                addConverter<Ours>(duel, "resampler", rates, frames);
                addConverter<Speex>(duel, "speexdsp", rates, frames);
            };
            registerDuel("resampler/" + pairName(rates) + "/" + std::to_string(frames), setUp);
        }
        registerMeasurement("quality/" + pairName(rates), [rates](benchmark::State& state) {
            measureQuality(state, rates);
        })->Iterations(1);
    }
}
