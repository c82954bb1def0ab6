#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

using Json = nlohmann::json;

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

/** Loud noise from frame `begin` to `end`, faint noise elsewhere. */
Audio burst(int rateHz, int64_t frameCount, int64_t begin, int64_t end, uint32_t seed) {
    Audio audio = noise(rateHz, 2, frameCount, seed);
    for (int64_t frame = 0; frame < frameCount; ++frame) {
        const int shift = frame >= begin && frame < end ? 0 : 4;
        for (size_t i = 0; i < 2; ++i) {
            int32_t& sample = audio.samples[static_cast<size_t>(frame * 2) + i];
            sample = sample >> (16 + shift) << 16;
        }
    }
    return audio;
}

Json mixJson(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--json", "--quiet", "--log", "silent"});
    return Json::parse(ToolRun::mixWell(arguments).output);
}

std::vector<float> readFloats(const std::string& path, int& format) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_NE(nullptr, file) << path;
    std::vector<float> samples(static_cast<size_t>(info.frames * info.channels));
    sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    format = info.format;
    return samples;
}

double peakDbfs(const std::string& path) {
    int format = 0;
    double peak = 0;
    for (const float sample : readFloats(path, format)) {
        peak = std::max(peak, std::abs(double{sample}));
    }
    return 20 * std::log10(peak);
}

TEST(MixLevels, WrappedSamplesAreCountedExactlyWithTimesAndCure) {
    const ScratchFolder folder;
    const Audio first = burst(48000, 96000, 24000, 26000, 1);
    const Audio second = burst(48000, 96000, 24500, 26500, 2);
    writeAudio(folder / "a.wav", kWav16, first);
    writeAudio(folder / "b.wav", kWav16, second);
    const std::vector<std::string> arguments = {folder / "a.wav", folder / "b.wav@volume=1.2s:0.9",
                                                "-o", folder / "mix.wav"};
    int64_t wrapped = 0;
    int64_t firstFrame = -1;
    int64_t lastFrame = -1;
    int32_t highest = 0;
    for (size_t i = 0; i < first.samples.size(); ++i) {
        // The change of volume comes behind the last sum that wraps.
        const int32_t sum = (first.samples[i] >> 16) + (second.samples[i] >> 16);
        if (sum != static_cast<int16_t>(sum)) {
            ++wrapped;
            lastFrame = static_cast<int64_t>(i / 2);
            firstFrame = firstFrame < 0 ? lastFrame : firstFrame;
            highest = std::max(highest, std::abs(sum));
        }
    }
    ASSERT_GT(wrapped, 100);
    const Json json = mixJson(arguments);
    const Json& summary = json["summary"];
    EXPECT_EQ(wrapped, summary["wrapped_samples"]);
    EXPECT_EQ(0, summary["clipped_samples"]);
    EXPECT_EQ(0, summary["unchecked_samples"]);
    ASSERT_EQ(1u, summary["over_full_scale"].size());
    EXPECT_EQ((firstFrame * 1'000'000'000 + 24000) / 48000,
              summary["over_full_scale"][0]["begin_ns"]);
    EXPECT_EQ(((lastFrame + 1) * 1'000'000'000 + 24000) / 48000,
              summary["over_full_scale"][0]["end_ns"]);
    EXPECT_EQ(wrapped, summary["over_full_scale"][0]["samples"]);
    const double excessDb = summary["excess_db"];
    EXPECT_NEAR(20 * std::log10(highest / 32767.0) + 0.05, excessDb, 0.0501);
    const auto told = ToolRun::mixWell(arguments);
    EXPECT_TRUE(
        told.says("warning: " + std::to_string(wrapped) + " samples wrapped around, at 0.5"))
        << told.messages;

    // The cure that it names, and no less.
    std::vector<std::string> cured = arguments;
    cured.insert(cured.end(), {"--headroom", std::to_string(excessDb)});
    EXPECT_EQ(0, mixJson(cured)["summary"]["wrapped_samples"]);
    cured.back() = std::to_string(excessDb - 0.2);
    EXPECT_NE(0, mixJson(cured)["summary"]["wrapped_samples"]);
}

TEST(MixLevels, ConvertedInputsAndWalkingGainsAreCountedToo) {
    const ScratchFolder folder;
    writeAudio(folder / "a.wav", kWav16, noise(44100, 2, 44100, 1));
    writeAudio(folder / "b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, noise(48000, 2, 48000, 2));
    writeAudio(folder / "c.wav", kWav16, noise(96000, 1, 96000, 3));
    const std::vector<std::string> inputs = {folder / "a.wav@volume=300ms:0.5,volume=600ms:1",
                                             folder / "b.flac@gain=0.7,start=10ms",
                                             folder / "c.wav@balance=0.3", "--rate", "48000"};
    std::vector<std::string> narrow = inputs;
    narrow.insert(narrow.end(), {"-o", folder / "mix.wav"});
    const Json json = mixJson(narrow);
    EXPECT_EQ(0, json["summary"]["unchecked_samples"]);
    // The same sums with room above full scale; each input is cut by less than a 16-bit step more.
    std::vector<std::string> wide = inputs;
    wide.insert(wide.end(), {"-o", folder / "wide.wav", "--format", "f32"});
    mixJson(wide);
    int format = 0;
    const std::vector<float> sums = readFloats(folder / "wide.wav", format);
    const Audio mix = readAudio(folder / "mix.wav");
    ASSERT_EQ(sums.size(), mix.samples.size());
    int64_t wrapped = 0;
    for (size_t i = 0; i < sums.size(); ++i) {
        const double sample = mix.samples[i] / 65536.0;
        const double turns = std::round((sums[i] * 32768.0 - sample) / 65536.0);
        ASSERT_NEAR(sums[i] * 32768.0, sample + 65536.0 * turns, 3.0) << i;
        wrapped += turns != 0 ? 1 : 0;
    }
    ASSERT_GT(wrapped, 1000);
    EXPECT_EQ(wrapped, json["summary"]["wrapped_samples"]);
}

TEST(MixLevels, SamplesOfAnInputHeldToFullScaleAreCounted) {
    const ScratchFolder folder;
    // Real numbers, half of them up to 6 dB above full scale.
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = kWavFloat;
    std::vector<float> samples(48000);
    int64_t above = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = i % 4 < 2 ? 0.5f : i % 3 == 0 ? 1.9f : -1.9f;
        above += std::abs(samples[i]) > 1 ? 1 : 0;
    }
    SNDFILE* file = sf_open((folder / "a.wav").c_str(), SFM_WRITE, &info);
    sf_writef_float(file, samples.data(), 24000);
    sf_close(file);
    const auto heldOf = [&](const std::string& settings, const std::string& rate) {
        const Json json =
            mixJson({folder / "a.wav" + settings, "-o", folder / "mix.wav", "--rate", rate});
        EXPECT_EQ(0, json["summary"]["wrapped_samples"]) << "one input has no sums";
        return json["inputs"][0]["clipped_samples"].get<int64_t>();
    };
    EXPECT_EQ(above, heldOf("", "48000"));
    EXPECT_EQ(above, heldOf("", "44100"));
    EXPECT_EQ(0, heldOf("@gain=0.5", "48000")) << "the gain brings them down first";

    const Json json =
        mixJson({folder / "a.wav", "-o", folder / "f.wav", "--format", "f32", "--rate", "48000"});
    EXPECT_EQ(0, json["inputs"][0]["clipped_samples"]);
    EXPECT_EQ(0, json["summary"]["clipped_samples"]);
    EXPECT_EQ(above, json["summary"]["over_full_scale"][0]["samples"]);
    EXPECT_NEAR(20 * std::log10(1.9), json["summary"]["peak_dbfs"].get<double>(), 0.001);
    int format = 0;
    const std::vector<float> kept = readFloats(folder / "f.wav", format);
    EXPECT_EQ(kWavFloat & SF_FORMAT_SUBMASK, format & SF_FORMAT_SUBMASK);
    ASSERT_EQ(samples.size(), kept.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        ASSERT_NEAR(samples[i], kept[i], 1.0 / 32768) << i;
    }
}

TEST(MixLevels, NormalizingBringsThePeakToOneDecibelBelowFullScale) {
    const ScratchFolder folder;
    writeAudio(folder / "loud.wav", kWav16, noise(48000, 2, 30000, 1));
    writeAudio(folder / "more.wav", kWav16, noise(44100, 2, 30000, 2));
    writeAudio(folder / "none.wav", kWav16,
               {.rateHz = 48000, .channelCount = 2, .samples = std::vector<int32_t>(9600)});
    const auto normalized = [&](std::vector<std::string> arguments, const std::string& name) {
        arguments.insert(arguments.end(), {"--normalize", "-o", folder / name});
        return mixJson(arguments);
    };
    const std::string loud = folder / "loud.wav";
    for (const std::string format : {"16", "32", "f32"}) {
        const Json json =
            normalized({loud, folder / "more.wav", "--format", format}, "mix" + format + ".wav");
        EXPECT_EQ(0, json["summary"]["wrapped_samples"]);
        EXPECT_NEAR(-1.0, peakDbfs(folder / "mix" + format + ".wav"), 0.001) << format;
        EXPECT_NEAR(-1.0, json["summary"]["peak_dbfs"].get<double>(), 0.001) << format;
        EXPECT_LT(json["output"]["normalized_db"].get<double>(), -1.0);
    }
    // Up as well; and silence stays silence.
    const Json json = normalized({loud + "@gain=0.1"}, "up.flac");
    EXPECT_NEAR(19.0, json["output"]["normalized_db"].get<double>(), 0.02);
    EXPECT_NEAR(-1.0, peakDbfs(folder / "up.flac"), 0.001);
    normalized({folder / "none.wav"}, "none2.wav");
    EXPECT_EQ(std::vector<int32_t>(9600), readAudio(folder / "none2.wav").samples);
    EXPECT_EQ(8, std::distance(std::filesystem::directory_iterator(folder / "."),
                               std::filesystem::directory_iterator()))
        << "nothing is left beside inputs and mixes";
    const auto refused = ToolRun({loud, "--normalize"}, "play").wait();
    EXPECT_EQ(2, refused.exitCode) << refused.messages;
}

}  // namespace
}  // namespace android
