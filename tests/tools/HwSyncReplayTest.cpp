#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

using Json = nlohmann::json;

/** Packs five seconds of a level that no silence has. */
class HwSyncReplay : public ::testing::Test {
protected:
    HwSyncReplay() {
        Audio audio{.rateHz = 48000, .channelCount = 2, .samples = {}};
        audio.samples.assign(size_t{2} * 48000 * 5, 1 << 28);
        writeAudio(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio);
        ToolRun::hwsync({"pack", folder / "in.wav", "-o", stream, "--free-run", "4.2s:4.6s"});
    }

    const ScratchFolder folder;
    const std::string stream = folder / "s.hws";
};

TEST_F(HwSyncReplay, JumpsAreCorrectedAndTheLeadReturns) {
    std::ofstream(folder / "script") << "# the clock goes back\n 2.3s:jump=-400ms\n";
    const auto result = ToolRun::hwsync({"replay", stream, "--json", "-o", folder / "out.wav",
                                         "--svg", folder / "lead.svg", "--event", "1s:jump=+400ms",
                                         "--script", folder / "script"});
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const Json found = Json::parse(result.output);
    const auto count = [&](const char* name) { return found["summary"][name].get<int64_t>(); };
    EXPECT_EQ(250, count("bursts"));
    EXPECT_EQ(20, count("free_run"));
    EXPECT_EQ(2, count("re_anchor"));  // the start, and the return from free run
    EXPECT_EQ(1, count("silence"));
    // Of 400 ms each: the first jump finds a lead of 50 ms, which the ring holds; the second -10 ms.
    EXPECT_EQ(350'000'000, count("dropped_ns"));
    EXPECT_EQ(390'000'000, count("silence_ns"));
    EXPECT_EQ(0, count("missed_ns") + count("underruns"));
    std::vector<size_t> events;
    for (const Json& excursion : found["excursions"]) {
        EXPECT_TRUE(excursion["is_over"].get<bool>());
        if (excursion.contains("event")) {
            events.push_back(excursion["event"].get<size_t>());
        }
    }
    EXPECT_EQ((std::vector<size_t>{0, 1}), events);
    for (const Json& decision : found["decisions"]) {
        if (decision.contains("lead_ns")) {
            // As the policy, in whole ms of both times.
            const int64_t leadMs = decision["timestamp_ns"].get<int64_t>() / 1'000'000 -
                                   decision["clock_ns"].get<int64_t>() / 1'000'000;
            EXPECT_EQ(leadMs < -100  ? "drop"
                      : leadMs > 300 ? "silence"
                                     : "none",
                      decision["decision"].get<std::string>());
        }
    }
    // What is heard: the silence that was inserted, and the audio without what was dropped.
    const Audio heard = readAudio(folder / "out.wav");
    const auto silent = std::count(heard.samples.begin(), heard.samples.end(), 0) / 2;
    EXPECT_EQ(count("silence_ns") * 48 / 1'000'000, silent);
    EXPECT_EQ(48000 * 5 + silent - count("dropped_ns") * 48 / 1'000'000, heard.frameCount());
    std::stringstream svg;
    svg << std::ifstream(folder / "lead.svg").rdbuf();
    for (const char* part : {"<svg", "jump +400 ms", "jump -400 ms", "free run", "</svg>"}) {
        EXPECT_NE(std::string::npos, svg.str().find(part)) << part;
    }
}

TEST_F(HwSyncReplay, PropertiesBoundCorrectionsAndAPlainStreamSoundsBeside) {
    const auto result =
        ToolRun::hwsync({"replay", stream, "--json", "--summary", "--duration", "2s",
                         "--vlead-threshold", "500", "--vlead-upper", "550", "--offset", "600ms",
                         "--beside", folder / "in.wav@length=0.5", "-o", folder / "out.wav"});
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const Json summary = Json::parse(result.output)["summary"];
    // Beyond the upper bound the clock is anchored anew, and no audio is dropped.
    EXPECT_EQ(0, summary["drop"]);
    EXPECT_EQ(2, summary["re_anchor"]);
    const Audio heard = readAudio(folder / "out.wav");
    const auto sums = std::count(heard.samples.begin(), heard.samples.end(), 1 << 29) / 2;
    EXPECT_EQ(24000, sums);
}

TEST_F(HwSyncReplay, DoesNotWaitForWhoeverReadsTheLog) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const std::string page(4096, '-');
    for (int room = fcntl(ends[1], F_GETPIPE_SZ); room > 0; room -= static_cast<int>(page.size())) {
        ASSERT_EQ(4096, write(ends[1], page.data(), page.size()));
    }
    ToolRun run({"replay", stream, "--duration", "500ms", "--log", "verbose", "--quiet"}, "hwsync",
                {.messages = ends[1]});
    close(ends[1]);
    auto result = std::async(std::launch::async, [&run] { return run.wait(); });
    EXPECT_EQ(std::future_status::ready, result.wait_for(std::chrono::seconds(60)));
    close(ends[0]);  // ends a program that waits
    EXPECT_EQ(0, result.get().exitCode);
}

TEST_F(HwSyncReplay, AWrongFormatIsToldFromAFaultOfTheStream) {
    const auto misread =
        ToolRun::hwsync({"replay", stream, "--rate", "44100", "--duration", "1.5s", "--summary"});
    EXPECT_TRUE(misread.says("s.hws: most steps are off")) << misread.messages;
    EXPECT_TRUE(misread.says("fit 48000 Hz with 2 channels")) << misread.messages;
    EXPECT_NE(std::string::npos, misread.output.find("fit 48000 Hz")) << misread.output;
    const auto sound = ToolRun::hwsync({"replay", stream, "--duration", "1.5s", "--summary"});
    EXPECT_FALSE(sound.says("steps")) << sound.messages;
    EXPECT_EQ(std::string::npos, sound.output.find("in the stream itself")) << sound.output;
}

TEST_F(HwSyncReplay, HeardTimeBeyondALimitIsCountedAndJudged) {
    const auto replay = [&](const std::string& limit) {
        return ToolRun::hwsync({"replay", stream, "--json", "--event", "1s:jump=+400ms",
                                "--duration", "2s", "--max-heard", limit});
    };
    const auto result = replay("+45,-125ms");
    ASSERT_EQ(4, result.exitCode) << result.messages;
    EXPECT_TRUE(result.says("beyond --max-heard +45,-125ms")) << result.messages;
    const Json found = Json::parse(result.output);
    int64_t heardNs = 0;
    int64_t lateNs = 0;
    for (const Json& decision : found["decisions"]) {
        if (decision.contains("heard_lead_ns")) {
            heardNs += 20'000'000;
            lateNs += decision["heard_lead_ns"].get<double>() < -125e6 ? 20'000'000 : 0;
        }
    }
    EXPECT_NEAR(static_cast<double>(heardNs), found["heard"]["measured_ns"].get<double>(), 1000);
    // Behind the jump the ring holds three bursts that nothing corrects any more.
    EXPECT_EQ(60'000'000, lateNs);
    for (const char* range : {"beyond_detectability", "beyond_max_heard"}) {
        EXPECT_NEAR(static_cast<double>(lateNs), found["heard"][range]["late_ns"].get<double>(),
                    1000);
    }
    const auto lenient = replay("+5000,-5000");
    EXPECT_EQ(0, lenient.exitCode) << lenient.messages;
}

TEST_F(HwSyncReplay, FiguresOfABusyMachineAreSaidToBeItsOwn) {
    ToolRun run({"replay", stream, "--realtime", "--duration", "1.5s", "--csv", "--summary"},
                "hwsync", ToolRun::Streams());
    // As a machine that has other things to do: nothing runs for long.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    run.signal(SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    run.signal(SIGCONT);
    const auto result = run.wait();
    EXPECT_EQ(3, result.exitCode);
    EXPECT_TRUE(result.says("the machine was too busy")) << result.messages;
    EXPECT_NE(std::string::npos, result.output.find("\nunderruns,")) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("\nunderruns,0\n")) << result.output;
}

TEST_F(HwSyncReplay, ACorrectionWithoutItsLogLineFailsLoudly) {
    std::stringstream library;
    library << std::ifstream(STREAMPROXY_LIBRARY, std::ios::binary).rdbuf();
    for (const std::string words : {"%s, filling silience", "%s, drop %llu ms", "%s, drop bytes"}) {
        std::string bytes = library.str();
        const size_t at = bytes.find(words);
        ASSERT_NE(std::string::npos, at) << words;
        bytes[at + 2] = ';';
        std::ofstream(folder / "reworded.so", std::ios::binary) << bytes;
        const auto result =
            ToolRun::hwsync({"replay", stream, "--library", folder / "reworded.so", "--event",
                             "1s:jump=+400ms", "--event", "2s:jump=-800ms"});
        EXPECT_EQ(1, result.exitCode) << words;
        EXPECT_TRUE(result.says("log has no line that says")) << result.messages;
    }
}

TEST_F(HwSyncReplay, GainsAreLinearOrInDecibels) {
    for (const auto& [gain, share] : {std::pair{"0.5", 0.5}, std::pair{"-20dB", 0.1}}) {
        const auto result = ToolRun::hwsync({"replay", stream, "--gain", gain, "--duration", "1s",
                                             "--summary", "-o", folder / "out.wav"});
        ASSERT_EQ(0, result.exitCode) << result.messages;
        const std::vector<int32_t> heard = readAudio(folder / "out.wav").samples;
        EXPECT_NEAR(share, heard[heard.size() / 2] / double{1 << 28}, 0.001) << gain;
    }
}

TEST_F(HwSyncReplay, WhatCantBeReplayedIsNamed) {
    std::ofstream(folder / "empty.hws").close();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{folder / "missing.hws"}, "missing.hws: No such file"},
        {{folder / "empty.hws"}, "empty.hws: is empty"},
        {{folder / ""}, "is a directory"},
        {{"/dev/zero"}, "is not a regular file"},
        {{folder / "in.wav"}, "'RIFF' as an audio file does"},
        {{stream, "--event", "1s:leap=3"}, "'leap=3' is not an event"},
        {{stream, "--script", folder / "missing"}, "check --script"},
        {{stream, "--latency-offset", "-10ms"}, "an offset below 0"},
        {{stream, "--max-heard", "45"}, "write +45,-125"},
        {{stream, "--max-heard", "-125,+45"}, "allows nothing"},
        {{stream, "--drift", "nan"}, "--drift: 'nan' is not a number"},
        {{stream, "--gain", "nan"}, "--gain: 'nan' is not a gain"},
        {{stream, "--gain", "+1dB"}, "outside 0 to 1"},
        {{stream, "--duration", "0"}, "--duration: leaves nothing to play"},
        {{stream, "--clock", "-1"}, "--clock: Value -1 not in range"},
        // As a property the first would be 1, and the others what no one asked for.
        {{stream, "--alead-threshold", "1e3"}, "--alead-threshold: Value 1e3"},
        {{stream, "--alead-upper", "-1"}, "--alead-upper: Value -1"},
        {{stream, "--vlead-upper", "99999999999"}, "--vlead-upper: Value 99999999999"},
        {{stream, "--beside", folder / "in.wav", "--report", folder / "./in.wav"},
         "in.wav: is also an input"},
    };
    for (auto [arguments, words] : cases) {
        arguments.insert(arguments.begin(), "replay");
        const auto result = ToolRun::hwsync(arguments);
        EXPECT_NE(0, result.exitCode);
        EXPECT_TRUE(result.says(words)) << result.messages;
    }
}

}  // namespace
}  // namespace android
