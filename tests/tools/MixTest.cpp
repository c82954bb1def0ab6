#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWav24 = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr double kFullScale = 2147483648.0;

Audio tone(int rateHz, int channelCount, double frequencyHz, double amplitude, double seconds) {
    Audio audio{.rateHz = rateHz, .channelCount = channelCount, .samples = {}};
    for (int64_t frame = 0; frame < std::llround(seconds * rateHz); ++frame) {
        const double phase = 2 * M_PI * frequencyHz * static_cast<double>(frame) / rateHz;
        const auto sample = static_cast<int32_t>(amplitude * kFullScale * std::sin(phase));
        audio.samples.insert(audio.samples.end(), static_cast<size_t>(channelCount), sample);
    }
    return audio;
}

// Amplitude of `frequencyHz` in one channel of the frames in [from, to), Hann-windowed.
double amplitudeAt(const Audio& audio, size_t channel, double frequencyHz, size_t from, size_t to) {
    std::complex<double> sum;
    for (size_t frame = from; frame < to; ++frame) {
        const auto position = static_cast<double>(frame - from);
        const double window = 1 - std::cos(2 * M_PI * position / static_cast<double>(to - from));
        const double angle = 2 * M_PI * frequencyHz * position / audio.rateHz;
        sum += window * audio.samples[frame * static_cast<size_t>(audio.channelCount) + channel] *
               std::polar(1.0, -angle);
    }
    return 2 * std::abs(sum) / static_cast<double>(to - from) / kFullScale;
}

TEST(Mix, SixteenBitSumsAreExactFromTheFirstFrame) {
    const ScratchFolder folder;
    const Audio first = noise(44100, 2, 30011, 1);
    const Audio second = noise(44100, 2, 20000, 2);
    writeAudio(folder / "a@b.wav", kWav16, first);
    writeAudio(folder / "c.wav", kWav16, second);
    const int64_t start = 11025;
    const auto result =
        ToolRun::mixWell({folder / "a@b.wav", folder / "c.wav@gain=0.7,balance=-0.25,start=0.25",
                          "-o", folder / "mix.wav", "--loop", "1"});
    const Audio mix = readAudio(folder / "mix.wav");
    ASSERT_EQ(44100, mix.rateHz);
    ASSERT_EQ(start + second.frameCount(), mix.frameCount());
    const int32_t gains[2] = {static_cast<int32_t>(0.7f * 4096),
                              static_cast<int32_t>(0.7f * 0.75f * 4096)};
    for (int64_t frame = 0; frame < mix.frameCount(); ++frame) {
        for (int64_t channel = 0; channel < 2; ++channel) {
            const auto sampleOf = [&](const Audio& audio, int64_t at) {
                return at >= 0 && at < audio.frameCount()
                           ? audio.samples[static_cast<size_t>(at * 2 + channel)] >> 16
                           : 0;
            };
            const int32_t sum =
                sampleOf(first, frame) + ((sampleOf(second, frame - start) * gains[channel]) >> 12);
            ASSERT_EQ(static_cast<int16_t>(sum),
                      mix.samples[static_cast<size_t>(frame * 2 + channel)] >> 16)
                << "frame " << frame << ", channel " << channel;
        }
    }
    EXPECT_TRUE(result.says("wrapped around")) << result.messages;
}

TEST(Mix, JsonHasTheFiguresOfTheFiles) {
    const ScratchFolder folder;
    const Audio first = noise(44100, 2, 30011, 1);
    const Audio silent{.rateHz = 44100, .channelCount = 1, .samples = std::vector<int32_t>(4410)};
    writeAudio(folder / "first.wav", kWav16, first);
    writeAudio(folder / "silent.wav", kWav16, silent);
    const auto result = ToolRun::mixWell({folder / "first.wav@gain=0.5,start=250ms",
                                          folder / "silent.wav@volume=10ms:0.25", "-o",
                                          folder / "mix.wav", "--json"});
    EXPECT_EQ("", result.messages) << "no summary beside it, no progress rewritten in place";

    const Audio mix = readAudio(folder / "mix.wav");
    double peak = 0;
    double squares = 0;
    for (const int32_t sample : mix.samples) {
        peak = std::max(peak, std::abs(sample / kFullScale));
        squares += sample / kFullScale * (sample / kFullScale);
    }
    const auto json = nlohmann::json::parse(result.output);
    const auto& output = json.at("output");
    EXPECT_EQ(folder / "mix.wav", output.at("file"));
    EXPECT_TRUE(output.at("device").is_null());
    EXPECT_EQ(mix.rateHz, output.at("rate_hz"));
    EXPECT_EQ(mix.channelCount, output.at("channels"));
    EXPECT_EQ(16, output.at("bits"));
    const auto& summary = json.at("summary");
    EXPECT_EQ(mix.frameCount(), summary.at("frames"));
    EXPECT_EQ(std::llround(1e9 * static_cast<double>(mix.frameCount()) / mix.rateHz),
              summary.at("duration_ns"));
    EXPECT_NEAR(20 * std::log10(peak), summary.at("peak_dbfs").get<double>(), 1e-6);
    const double rms = std::sqrt(squares / static_cast<double>(mix.samples.size()));
    EXPECT_NEAR(20 * std::log10(rms), summary.at("rms_dbfs").get<double>(), 1e-6);
    EXPECT_EQ(0, summary.at("short_blocks"));
    EXPECT_GE(summary.at("blocks").get<int64_t>(), mix.frameCount() / 882);
    EXPECT_NEAR(summary.at("duration_ns").get<double>() / summary.at("elapsed_ns").get<double>(),
                summary.at("speed").get<double>(), 1e-3);
    ASSERT_EQ(2u, json.at("inputs").size());
    const auto& loud = json.at("inputs")[0];
    EXPECT_EQ(folder / "first.wav", loud.at("file"));
    EXPECT_EQ(first.frameCount(), loud.at("written_frames"));
    EXPECT_EQ(first.frameCount(), loud.at("heard_frames"));
    EXPECT_EQ(0.5, loud.at("gain"));
    EXPECT_EQ(250'000'000, loud.at("start_ns"));
    EXPECT_NEAR(0.0, loud.at("peak_dbfs").get<double>(), 0.01) << "of the file, without its gain";
    const auto& quiet = json.at("inputs")[1];
    EXPECT_EQ(1, quiet.at("channels"));
    EXPECT_EQ(10'000'000, quiet.at("gain_changes").at(0).at("time_ns"));
    EXPECT_TRUE(quiet.at("peak_dbfs").is_null()) << "silence has no decibels";
}

TEST(Mix, AVolumeChangeWalksFromItsBlockOn) {
    const ScratchFolder folder;
    const Audio input = noise(44100, 2, 44100, 3);
    writeAudio(folder / "in.wav", kWav16, input);
    ToolRun::mixWell({folder / "in.wav@volume=510ms:0,volume=0.8s:-1dB", "-o", folder / "mix.flac",
                      "--write-frames", "77"});
    const Audio mix = readAudio(folder / "mix.flac");
    ASSERT_EQ(input.frameCount(), mix.frameCount());
    // A block is 900 frames; a walk takes the 2700 of the stream's buffer, to the end of a block.
    const auto expectGain = [&](size_t firstBlock, size_t endBlock, int32_t gain) {
        for (size_t i = firstBlock * 1800; i < endBlock * 1800; ++i) {
            ASSERT_EQ(((input.samples[i] >> 16) * gain) >> 12, mix.samples[i] >> 16) << i / 2;
        }
    };
    expectGain(0, 25, 4096);
    EXPECT_NE(input.samples[25 * 1800 + 900], mix.samples[25 * 1800 + 900]) << "the walk";
    EXPECT_NE(0, mix.samples[25 * 1800 + 900]);
    expectGain(29, 39, 0);
    expectGain(43, 49, static_cast<int32_t>(std::pow(10.0, -0.05) * 4096));
}

TEST(Mix, ThirtyTwoBitFilesKeepTheirLevelAndCountWhatClips) {
    const ScratchFolder folder;
    Audio input = noise(48000, 2, 10000, 4);
    writeAudio(folder / "a.wav", kWav24, input);
    auto result = ToolRun::mixWell({folder / "a.wav", "-o", folder / "mix.wav", "--format", "32"});
    EXPECT_EQ(input.samples, readAudio(folder / "mix.wav").samples);
    EXPECT_TRUE(result.says(" 0 samples clipped"));

    // Twice the same is 6 dB more: held to full scale where it goes beyond, and counted.
    result = ToolRun::mixWell(
        {folder / "a.wav", folder / "a.wav", "-o", folder / "mix.wav", "--format", "32"});
    int64_t clipped = 0;
    const Audio twice = readAudio(folder / "mix.wav");
    for (size_t i = 0; i < input.samples.size(); ++i) {
        const int64_t sum = int64_t{input.samples[i]} * 2;
        const int64_t held = std::clamp<int64_t>(sum, INT32_MIN, INT32_MAX);
        clipped += sum != held ? 1 : 0;
        ASSERT_EQ(held, twice.samples[i]);
    }
    EXPECT_TRUE(result.says(std::to_string(clipped) + " samples clipped")) << result.messages;
    const auto quiet = ToolRun::mixWell({folder / "a.wav", "-o", folder / "mix.wav", "--quiet"});
    EXPECT_TRUE(quiet.messages.empty()) << quiet.messages;
}

TEST(Mix, InputsOfEveryKindAreHeardWholeAndInTime) {
    const ScratchFolder folder;
    writeAudio(folder / "a.wav", kWav16, tone(8000, 1, 440, 0.2, 1.7));
    writeAudio(folder / "b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
               tone(96000, 2, 3000, 0.2, 1.1));
    writeAudio(folder / "c.wav", kWavFloat, tone(44100, 6, 1000, 0.2, 0.33));
    writeAudio(folder / "d.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
               tone(48000, 1, 6000, 0.2, 0.9));
    writeAudio(folder / "e.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8,
               tone(192000, 2, 9000, 0.2, 0.01));
    const auto result = ToolRun::mixWell(
        {folder / "a.wav", folder / "b.flac@start=0.5", folder / "c.wav@loop=4", folder / "d.aiff",
         folder / "e.wav@start=1", "-o", folder / "mix.wav", "--rate", "48000"});
    for (const int frames : {13600, 105600, 58212, 43200, 1920}) {
        const std::string number = std::to_string(frames);
        EXPECT_TRUE(result.says(number + " frames written, " + number + " heard, 0 short writes"))
            << result.messages;
    }
    EXPECT_TRUE(result.says("blocks, 0 short\n")) << result.messages;

    const Audio mix = readAudio(folder / "mix.wav");
    for (size_t channel = 0; channel < 2; ++channel) {
        const auto level = [&](double frequencyHz, double fromSec, double toSec) {
            return 20 * std::log10(amplitudeAt(mix, channel, frequencyHz,
                                               static_cast<size_t>(fromSec * 48000),
                                               static_cast<size_t>(toSec * 48000)));
        };
        const double whole = 20 * std::log10(0.2);
        EXPECT_NEAR(whole, level(440, 0.01, 1.69), 0.05);
        EXPECT_LT(level(3000, 0.0, 0.499), whole - 50);
        EXPECT_NEAR(whole, level(3000, 0.501, 1.599), 0.05);
        EXPECT_NEAR(whole, level(6000, 0.0, 0.9), 0.05);
        EXPECT_LT(level(6000, 0.91, 1.69), whole - 50);
        EXPECT_NEAR(whole, level(9000, 1.001, 1.01), 0.2);
        EXPECT_NEAR(whole, level(1000, 0.01, 0.32), 0.05);
    }
    EXPECT_EQ(81600, mix.frameCount()) << "the longest input";
}

TEST(Mix, NativeHandoverSaysWhatItCosts) {
    const ScratchFolder folder;
    writeAudio(folder / "mono.wav", kWav16, tone(44100, 1, 440, 0.2, 0.5));
    writeAudio(folder / "high.wav", kWav16, tone(48000, 1, 440, 0.2, 0.5));
    writeAudio(folder / "low.wav", kWav16, tone(16000, 1, 440, 0.2, 3.0));
    const auto mixNative = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"-o", folder / "mix.wav", "--rate", "44100", "--native",
                                           "--log", "error"});
        return ToolRun::mixWell(arguments);
    };
    // Mono on the left only: the library's own mapping.
    auto result = mixNative({folder / "mono.wav"});
    const Audio mix = readAudio(folder / "mix.wav");
    EXPECT_NEAR(0.2, amplitudeAt(mix, 0, 440, 0, 22050), 0.001);
    EXPECT_EQ(0.0, amplitudeAt(mix, 1, 440, 0, 22050));
    EXPECT_FALSE(result.says("warning")) << result.messages;
    // One that gives less than it is asked for, first in the mix, costs the others nothing.
    result = mixNative({folder / "mono.wav", folder / "high.wav"});
    EXPECT_TRUE(result.says("came short; up to 0 frames")) << result.messages;
    EXPECT_TRUE(result.says("high.wav made ")) << result.messages;
    EXPECT_FALSE(result.says("mono.wav made ")) << result.messages;
    // Where the rate rises the surplus of the stage in front has to go somewhere; nothing hangs.
    mixNative({folder / "low.wav", folder / "high.wav"});
}

TEST(Mix, ShortBlocksNameWhoMadeThemAndWhoLost) {
    const ScratchFolder folder;
    writeAudio(folder / "fast.wav", kWav16, tone(96000, 1, 440, 0.2, 2));
    writeAudio(folder / "faster.wav", kWav16, tone(192000, 1, 660, 0.2, 2));
    const std::vector<std::string> arguments = {folder / "fast.wav",
                                                folder / "faster.wav",
                                                "--native",
                                                "--rate",
                                                "48000",
                                                "-o",
                                                folder / "mix.wav",
                                                "--json"};
    const auto result = ToolRun::mixWell(arguments);
    const auto json = nlohmann::json::parse(result.output);
    const int64_t shortBlocks = json["summary"]["short_blocks"];
    const auto& fast = json["inputs"][0];
    const auto& faster = json["inputs"][1];
    // Of 960 frames that it is asked for, the first gives 480, and the second 120 for those.
    EXPECT_EQ(shortBlocks, fast["short_blocks"]);
    EXPECT_EQ(shortBlocks, faster["short_blocks"]);
    EXPECT_NEAR(192000 * 0.75, fast["max_lost_frames"].get<double>(), 2000);
    EXPECT_EQ(192000, fast["heard_frames"].get<int64_t>() + fast["max_lost_frames"].get<int64_t>());
    EXPECT_EQ(0, faster["max_lost_frames"]);
    EXPECT_TRUE(result.says("fast.wav up to ")) << result.messages;
    // Every block logs the same lines: each is printed once, with its count behind it.
    const std::string line = "stream 0 processed 480 frames, but 960 required";
    const size_t first = result.messages.find(line);
    ASSERT_NE(std::string::npos, first) << result.messages;
    const size_t second = result.messages.find(line, first + 1);
    ASSERT_NE(std::string::npos, second) << result.messages;
    EXPECT_EQ(std::string::npos, result.messages.find(line, second + 1)) << result.messages;
    EXPECT_EQ(" ... ", result.messages.substr(second + line.size(), 5));
    EXPECT_NEAR(static_cast<double>(shortBlocks),
                1 + std::stod(result.messages.substr(second + line.size() + 5)), 5);
}

TEST(Mix, DumpPropertiesAndLogReachTheLibrary) {
    const ScratchFolder folder;
    writeAudio(folder / "in.wav", kWav16, tone(48000, 2, 440, 0.2, 0.5));
    std::ofstream(folder / "props") << "# bigger\n persist.vendor.hwsync.fbuffer.size = 6000 \n";
    const auto result =
        ToolRun::mixWell({folder / "in.wav", "-o", folder / "mix.wav", "--rate", "32000", "--dump",
                          "--properties", folder / "props", "--realtime", "--log", "debug"});
    EXPECT_NE(std::string::npos, result.output.find("Dst Sample Rate: 32000")) << result.output;
}

TEST(Mix, CtrlCLeavesAValidFile) {
    const ScratchFolder folder;
    writeAudio(folder / "in.wav", kWav16, tone(48000, 2, 440, 0.2, 2));
    ToolRun run({folder / "in.wav@loop=1000", "-o", folder / "mix.wav", "--realtime"});
    ToolRun other(
        {folder / "in.wav@loop=1000", "-o", folder / "other.wav", "--realtime", "--json"});
    std::this_thread::sleep_for(std::chrono::seconds(1));
    run.signal(SIGINT);
    other.signal(SIGTERM);
    const auto result = run.wait();
    EXPECT_EQ(130, result.exitCode) << result.messages;
    const Audio mix = readAudio(folder / "mix.wav");
    EXPECT_GT(mix.frameCount(), 0);
    EXPECT_LT(mix.frameCount(), 48000 * 60);
    EXPECT_TRUE(result.says(std::to_string(mix.frameCount()) + " frames"));

    const auto told = other.wait();
    EXPECT_EQ(143, told.exitCode) << told.messages;
    EXPECT_EQ(readAudio(folder / "other.wav").frameCount(),
              nlohmann::json::parse(told.output).at("summary").at("frames"));
}

}  // namespace
}  // namespace android
