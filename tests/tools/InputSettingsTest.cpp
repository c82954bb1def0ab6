#include <gtest/gtest.h>
#include <sndfile.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWav32 = SF_FORMAT_WAV | SF_FORMAT_PCM_32;

/** Noise of two channels whose samples lie below half of full scale. */
class InputSettings : public ::testing::Test {
protected:
    InputSettings() {
        for (int32_t& sample : audio.samples) {
            sample >>= 1;
        }
        writeAudio(path, kWav16, audio);
    }
    Audio mix(const std::string& input, std::vector<std::string> options = {}) {
        options.insert(options.end(), {input, "-o", folder / "mix.wav"});
        messages = ToolRun::mixWell(options).messages;
        return readAudio(folder / "mix.wav");
    }
    bool says(const std::string& words) const { return messages.find(words) != messages.npos; }

    const ScratchFolder folder;
    const std::string path = folder / "in.wav";
    Audio audio = noise(48000, 2, 96000, 1);
    std::string messages;
};

TEST_F(InputSettings, GainsAboveFullAreHeldWhereThereIsRoom) {
    Audio twice = audio;
    for (int32_t& sample : twice.samples) {
        sample = (sample & ~0xffff) * 2;
    }
    EXPECT_EQ(twice.samples, mix(path + "@gain=2").samples);
    EXPECT_FALSE(says("clipped")) << messages;
    // Far above full scale on the way, and back below it where the mix is heard.
    for (const auto& [format, isHeld] : {std::pair("16", false), std::pair("32", true)}) {
        const Audio heard =
            mix(path + "@gain=+12dB,volume=0.5:+6.0206dB", {"--format", format, "--rate", "48000"});
        int64_t differing = 0;
        for (size_t i = size_t{2} * 48000; i < twice.samples.size(); ++i) {
            differing += std::abs(int64_t{heard.samples[i]} - twice.samples[i]) > 1 << 20 ? 1 : 0;
        }
        EXPECT_EQ(isHeld, differing == 0) << differing;
        EXPECT_EQ(isHeld, !says("has a gain above 0 dB, which pushes")) << messages;
    }
    const auto run = ToolRun::mix({path + "@gain=4,volume=1:2,volume=1.5:0.5", "-o",
                                   folder / "mix.wav", "--json", "--quiet"});
    const auto input = nlohmann::json::parse(run.output)["inputs"][0];
    EXPECT_EQ(4.0, input["gain"]);
    EXPECT_EQ(0.5, input["gain_changes"][1]["gain"]);
}

TEST_F(InputSettings, AnInputBeginsWhereItIsAskedTo) {
    const auto framesOf = [&](int64_t begin, int64_t end) {
        std::vector<int32_t> samples;
        for (int64_t i = 2 * begin; i < 2 * end; ++i) {
            samples.push_back(audio.samples[static_cast<size_t>(i)] & ~0xffff);
        }
        return samples;
    };
    EXPECT_EQ(framesOf(60000, 96000), mix(path + "@from=0:01.25").samples);
    EXPECT_EQ(framesOf(60000, 84000), mix(path + "@from=1.25,length=0:00.5").samples);
    std::vector<int32_t> twice = framesOf(48000, 96000);
    twice.insert(twice.end(), twice.begin(), twice.begin() + 96000);
    EXPECT_EQ(twice, mix(path + "@from=0:00:01,loop=2").samples);
}

TEST_F(InputSettings, SurroundBecomesStereoWithAllThatItHas) {
    // A level of its own in each channel: L R C LFE Ls Rs, and two more.
    constexpr std::array<double, 8> kLevels = {0.1, 0.2, 0.3, 0.9, 0.04, 0.05, 0.06, 0.07};
    constexpr double kStep = 1.0 / 32768;  // the library's gain stage keeps 16 bits
    const double lower = std::sqrt(0.5);
    for (const int channels : {6, 8}) {
        Audio surround{.rateHz = 48000, .channelCount = channels, .samples = {}};
        for (int64_t i = 0; i < int64_t{9600} * channels; ++i) {
            surround.samples.push_back(
                static_cast<int32_t>(kLevels[static_cast<size_t>(i % channels)] * 2147483648.0));
        }
        const bool isWide = channels == 8;
        const double scale = 1.0 / (1.0 + lower * (isWide ? 3 : 2));
        const double left = 0.1 + lower * (0.3 + 0.04 + (isWide ? 0.06 : 0));
        const double right = 0.2 + lower * (0.3 + 0.05 + (isWide ? 0.07 : 0));
        for (const int format : {kWav32, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24}) {
            writeAudio(folder / "surround.wav", format, surround);
            const Audio stereo = mix(folder / "surround.wav@downmix=itu", {"--format", "32"});
            ASSERT_EQ(9600, stereo.frameCount());
            EXPECT_NEAR(left * scale, stereo.samples[9600] / 2147483648.0, kStep);
            EXPECT_NEAR(right * scale, stereo.samples[9601] / 2147483648.0, kStep);
            EXPECT_FALSE(says("warning")) << messages;
        }
        mix(folder / "surround.wav");
        EXPECT_TRUE(says("only the first two are heard, all with downmix=itu")) << messages;
        std::vector<std::string> pack = {"pack", folder / "surround.wav", "-o", folder / "s.hws"};
        EXPECT_TRUE(ToolRun::hwsync(pack).says("only the first two are packed"));
        pack.emplace_back("--downmix");
        EXPECT_FALSE(ToolRun::hwsync(pack).says("warning"));
    }
    // Nothing passes full scale, however loud all are together.
    Audio loud{.rateHz = 48000, .channelCount = 6, .samples = {}};
    loud.samples.resize(size_t{6} * 9600, INT32_MIN);
    writeAudio(folder / "loud.wav", kWav32, loud);
    const Audio held = mix(folder / "loud.wav@downmix=itu", {"--format", "32"});
    EXPECT_TRUE(says("0 samples clipped")) << messages;
    EXPECT_EQ(INT32_MIN, held.samples[9600]);
    writeAudio(folder / "ten.wav", kWav16, noise(48000, 10, 100, 1));
    const auto refused =
        ToolRun::mix({folder / "ten.wav@downmix=itu", "-o", folder / "refused.wav"});
    EXPECT_EQ(2, refused.exitCode);
    EXPECT_TRUE(refused.says("downmix: nothing is known of how its 10")) << refused.messages;
}

}  // namespace
}  // namespace android
