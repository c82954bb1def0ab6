#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

/** Devices that need no sound card; the last one understands no linear samples. */
class Play : public ::testing::Test {
protected:
    Play() {
        std::ofstream(folder / "asound.conf")
            << "pcm.null { type null }\n"
            << "pcm.tofile { type file slave.pcm null file \"" << played << "\" format raw }\n"
            << "pcm.odd { type mulaw slave { pcm null format S16_LE } }\n";
        setenv("ALSA_CONFIG_PATH", (folder / "asound.conf").c_str(), 1);
        writeAudio(folder / "a.wav", kWav16, noise(44100, 2, 30011, 1));
        writeAudio(folder / "b.wav", kWav16, noise(32000, 1, 40000, 2));
    }
    ~Play() override { unsetenv("ALSA_CONFIG_PATH"); }

    template <typename Sample>
    std::vector<int32_t> playedSamples() const {
        std::ifstream file(played, std::ios::binary);
        std::vector<int32_t> samples;
        for (Sample sample = 0; file.read(reinterpret_cast<char*>(&sample), sizeof(sample));) {
            samples.push_back(static_cast<int32_t>(sample) *
                              (1 << (32 - 8 * static_cast<int>(sizeof(sample)))));
        }
        return samples;
    }

    const ScratchFolder folder;
    const std::string played = folder / "played.raw";
};

TEST_F(Play, TheDeviceGetsExactlyTheFramesOfTheFile) {
    const std::vector<std::string> inputs = {folder / "a.wav@gain=0.6,balance=0.3,start=50ms",
                                             folder / "b.wav@volume=300ms:0.2"};
    const auto withInputs = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        return arguments;
    };
    ToolRun::mixWell(withInputs({"-o", folder / "mix.wav"}));
    const auto result = ToolRun(withInputs({"--device", "tofile"}), "play").wait();
    EXPECT_EQ(0, result.exitCode) << result.messages;
    EXPECT_TRUE(result.says("sound device 'tofile': 48000 Hz, 16-bit, stereo")) << result.messages;
    EXPECT_TRUE(result.says("played, 0 underruns")) << result.messages;
    EXPECT_FALSE(result.says("buffer [")) << "meters, and no terminal: " << result.messages;
    EXPECT_EQ(readAudio(folder / "mix.wav").samples, playedSamples<int16_t>());

    const auto told = ToolRun(withInputs({"--device", "null", "--json"}), "play").wait();
    const auto json = nlohmann::json::parse(told.output);
    EXPECT_TRUE(json.at("output").at("file").is_null()) << told.output;
    EXPECT_EQ("null", json.at("output").at("device"));
    EXPECT_EQ(readAudio(folder / "mix.wav").frameCount(), json.at("summary").at("frames"));

    // Beside a file, in 32 bits, beyond full scale at times.
    ToolRun::mixWell(
        withInputs({"--play", "--device", "tofile", "-o", folder / "mix.wav", "--format", "32"}));
    EXPECT_EQ(readAudio(folder / "mix.wav").samples, playedSamples<int32_t>());
}

TEST_F(Play, WhatIsWrongWithTheDeviceIsSaidBeforeAnyFileIsTouched) {
    const auto expectFailure = [&](const std::vector<std::string>& arguments, int exitCode,
                                   const std::string& words, const std::string& remedy) {
        const auto result = ToolRun::mix(arguments);
        EXPECT_EQ(exitCode, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says(words) && result.says(remedy)) << result.messages;
        EXPECT_FALSE(result.says("ALSA lib")) << result.messages;
        EXPECT_FALSE(std::filesystem::exists(folder / "mix.wav"));
    };
    const std::string in = folder / "a.wav";
    const std::string out = folder / "mix.wav";
    expectFailure({in, "--play", "--device", "none", "-o", out}, 1,
                  "sound device 'none': can't be opened: No such", "--device");
    expectFailure({in, "--play", "-o", out}, 1, "sound device 'default'", "'aplay -L'");
    expectFailure({in, "--play", "--device", "odd", "-o", out}, 1,
                  "'odd': does not take 44100 Hz, 16-bit stereo", "plughw");
    expectFailure({in, "--device", "null", "-o", out}, 2, "--device requires --play", "");
    expectFailure({in}, 2, "--output is required, or --play", "");
    expectFailure({"--play"}, 2, "no INPUT", "");
}

TEST_F(Play, CtrlCEndsCleanly) {
    ToolRun run(
        {folder / "a.wav@loop=1000", "--device", "tofile", "--realtime", "-o", folder / "mix.wav"},
        "play");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    run.signal(SIGINT);
    const auto result = run.wait();
    EXPECT_EQ(130, result.exitCode) << result.messages;
    EXPECT_TRUE(result.says("played on sound device 'tofile'")) << result.messages;
    // The file has what was played, and the block at most that the signal cut off.
    std::vector<int32_t> written = readAudio(folder / "mix.wav").samples;
    const std::vector<int32_t> heard = playedSamples<int16_t>();
    ASSERT_GT(heard.size(), 0u);
    EXPECT_LE(heard.size(), written.size());
    EXPECT_LE(written.size(), heard.size() + 1800);
    written.resize(heard.size());
    EXPECT_EQ(written, heard);
}

TEST_F(Play, ATerminalShowsLevelsAndBuffersWhileItPlays) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(0, grantpt(terminal));
    ASSERT_EQ(0, unlockpt(terminal));
    const int programSide = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(programSide, 0);
    setenv("TERM", "vt100", 1);
    ToolRun run({folder / "a.wav", folder / "b.wav@start=5", "--device", "null", "--realtime",
                 "--rate", "44100"},
                "play", {.messages = programSide});
    close(programSide);
    std::string screen;
    char piece[4096];
    for (ssize_t got = 0; (got = read(terminal, piece, sizeof(piece))) > 0;) {
        screen.append(piece, static_cast<size_t>(got));
    }
    close(terminal);
    EXPECT_EQ(0, run.wait().exitCode) << screen;
    const auto shows = [&](const std::string& text) {
        return screen.find(text) != std::string::npos;
    };
    // Full-scale noise: the peak is near 0 dB, the RMS at that of a uniform distribution, -4.77 dB.
    EXPECT_TRUE(shows("L [")) << screen;
    EXPECT_TRUE(shows("] peak -0.00 dBFS, RMS -4.7")) << screen;
    EXPECT_TRUE(shows("a.wav                    buffer [##")) << screen;
    EXPECT_TRUE(shows("a.wav                    ended")) << screen;
    EXPECT_TRUE(shows(" of 6.2 s, 0 underruns")) << screen;
}

}  // namespace
}  // namespace android
