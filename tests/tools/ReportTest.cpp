#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tests/tools/ReportDocument.h"
#include "tests/tools/ToolRun.h"

namespace android {
namespace {

using Json = nlohmann::json;

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

/** A second at half of full scale, up and down, and a second of silence. */
Audio squareThenSilence() {
    Audio audio{.rateHz = 48000, .channelCount = 2, .samples = {}};
    audio.samples.resize(size_t{2} * 2 * 48000);
    for (size_t i = 0; i < audio.samples.size() / 2; ++i) {
        audio.samples[i] = i / 2 % 100 < 50 ? 1 << 30 : -(1 << 30);
    }
    return audio;
}

void expectSelfContained(const ReportDocument& page) {
    EXPECT_EQ("", page.fault());
    EXPECT_LT(page.bytes().size(), 1'500'000u);
    EXPECT_EQ(std::string::npos, page.bytes().find("url("));
    EXPECT_EQ(std::string::npos, page.bytes().find("@import"));
    for (const ReportDocument::Element& element : page.elements()) {
        for (const char* reference : {"src", "href", "xlink:href", "srcset", "data"}) {
            EXPECT_EQ(0u, element.attributes.count(reference)) << element.name;
        }
        EXPECT_NE("link", element.name);
    }
}

/** How much these marks tell of: those of a column share one. */
size_t toldBy(const std::vector<ReportDocument::Element>& marks) {
    size_t told = 0;
    for (const ReportDocument::Element& mark : marks) {
        const std::string& tip = mark.attributes.at("title");
        told += isdigit(static_cast<unsigned char>(tip.front())) != 0 ? std::stoul(tip) : 1;
    }
    return told;
}

TEST(Report, WaveformLevelGainAndStateAreThoseOfTheAudio) {
    const ScratchFolder folder;
    const std::string name = "<&\">\xff.wav";
    const std::string shown = "<&\">?.wav";
    writeAudio(folder / name, kWav16, squareThenSilence());
    const auto result = ToolRun::mixWell({folder / name + "@volume=500ms:0.5", "-o",
                                          folder / "mix.wav", "--report", folder / "r.html"});
    const ReportDocument page(folder / "r.html");
    expectSelfContained(page);
    // The whole mix is two seconds: shares of it are times.
    const auto expectWave = [&](const std::string& heading, double share, double amplitude) {
        const auto waves = page.find(heading, "wave", "wave");
        ASSERT_EQ(1u, waves.size()) << heading;
        const auto extent = ReportDocument::extentAt(waves.front().attributes.at("d"), share);
        EXPECT_NEAR(500 * (1 - amplitude), extent.top, 2) << heading << " at " << share;
        EXPECT_NEAR(500 * (1 + amplitude), extent.bottom, 2) << heading << " at " << share;
    };
    for (const double share : {0.01, 0.2, 0.35, 0.49}) {
        expectWave(shown, share, 0.5);
        expectWave("The mix", share, share < 0.25 ? 0.5 : 0.25);
    }
    for (const double share : {0.51, 0.99}) {
        expectWave(shown, share, 0.0);
        expectWave("The mix", share, 0.0);
    }
    // From -72 dBFS to 0, of which the square wave has -6.02.
    const auto level = page.find(shown, "level", "rms").at(0).attributes.at("d");
    EXPECT_NEAR(1000 * 6.02 / 72, ReportDocument::extentAt(level, 0.2).top, 2);
    EXPECT_NEAR(1000, ReportDocument::extentAt(level, 0.7).top, 2);

    const auto changes = page.find(shown, "gains", "mark set");
    ASSERT_EQ(1u, changes.size());
    EXPECT_EQ("gain set at 0.500 s to 0.5", changes.front().attributes.at("title"));
    const auto walks = page.find(shown, "gains", "walk left");
    ASSERT_EQ(1u, walks.size());
    // 2000 frames, brought to whole blocks of 960: 60 ms, of two seconds on 1000 columns.
    EXPECT_NE(std::string::npos, walks.front().attributes.at("d").find("L280.00 "))
        << walks.front().attributes.at("d");
    EXPECT_EQ("playing, 0.000 to 2.000 s", page.find(shown, "states", "playing").at(0).text);
    EXPECT_TRUE(result.says("in " + page.figure("blocks") + " blocks")) << result.messages;
    EXPECT_EQ("2.000 s", page.figure("length"));
    EXPECT_EQ("-6.02 dBFS", page.figure("peak"));
}

TEST(Report, EveryShortBlockIsMarked) {
    const ScratchFolder folder;
    writeAudio(folder / "a.wav", kWav16, noise(48000, 1, 30 * 48000, 1));
    const auto result = ToolRun::mix({folder / "a.wav@start=0.5", "--native", "--rate", "44100",
                                      "-o", folder / "mix.wav", "--report", folder / "r.html"});
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const ReportDocument page(folder / "r.html");
    expectSelfContained(page);
    const std::string count = page.figure("short blocks");
    EXPECT_TRUE(result.says("blocks, " + count + " short")) << result.messages;
    // More than the page has columns; those of a column share a mark.
    EXPECT_LT(1000u, std::stoul(count));
    const auto marks = page.find("The mix", "sizes", "mark short");
    EXPECT_GE(1000u, marks.size());
    EXPECT_EQ(std::stoul(count), toldBy(marks));
    double lastPercent = 0;
    ASSERT_EQ(1, sscanf(marks.back().attributes.at("style").c_str(), "left:%lf", &lastPercent));
    EXPECT_LT(98, lastPercent);
    EXPECT_EQ("silence in front, 0.000 to 0.500 s",
              page.find("a.wav", "states", "silent").at(0).text);
}

TEST(Report, APathThatCannotBeWrittenEndsTheRunBeforeAnythingIsTouched) {
    const ScratchFolder folder;
    writeAudio(folder / "a.wav", kWav16, noise(48000, 2, 4800, 1));
    const auto expectFailure = [&](const std::string& path, int exitCode, const char* words) {
        const auto result =
            ToolRun::mix({folder / "a.wav", "-o", folder / "mix.wav", "--report", path});
        EXPECT_EQ(exitCode, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says(path) && result.says(words)) << result.messages;
        EXPECT_FALSE(std::filesystem::exists(folder / "mix.wav"));
    };
    expectFailure(folder / "none/r.html", 1, "choose another place with --report");
    expectFailure(folder / "a.wav", 2, "is also an input");
    expectFailure(folder / "mix.wav", 2, "is named twice");
    // A run that fails later leaves none.
    const auto result =
        ToolRun::mix({folder / "a.wav", "-o", "/dev/full", "--report", folder / "r.html"});
    EXPECT_NE(0, result.exitCode);
    EXPECT_FALSE(std::filesystem::exists(folder / "r.html"));
}

TEST(HwSyncReplayReport, TheLeadIsShownWhereItIsParsedAndWhereItIsHeard) {
    const ScratchFolder folder;
    Audio audio = noise(48000, 2, 3 * 48000, 3);
    writeAudio(folder / "in.wav", kWav16, audio);
    ToolRun::hwsync({"pack", folder / "in.wav", "-o", folder / "s.hws"});
    const auto result = ToolRun::hwsync({"replay", folder / "s.hws", "--event", "1s:jump=+400ms",
                                         "--json", "--report", folder / "r.html"});
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const ReportDocument page(folder / "r.html");
    double low = 0;
    double high = 0;
    size_t dropCount = 0;
    const Json found = Json::parse(result.output);
    for (const Json& decision : found["decisions"]) {
        const double leadMs = decision.value("lead_ns", 0.0) / 1e6;
        low = std::min(low, leadMs);
        high = std::max(high, leadMs);
        dropCount += decision["decision"] == "drop" ? 1u : 0u;
    }
    expectSelfContained(page);
    char words[64];
    snprintf(words, sizeof(words), "%+.1f to %+.1f ms", low, high);
    EXPECT_EQ(words, page.figure("lead at the parser"));
    EXPECT_EQ(13u, dropCount);
    EXPECT_EQ(dropCount, toldBy(page.find("Audio lead", "parserlead", "mark drop")));
    // The first burst is heard as soon as it is parsed, and the clock begins with it. Behind the jump
    // the ring still holds bursts that are as late as the jump is long, which nothing corrects.
    EXPECT_EQ("-410.0 to -10.0 ms", page.figure("lead at the output"));
    // Once the drops have made up for the jump, less is left.
    const auto tick = std::find_if(
        page.elements().begin(), page.elements().end(), [](const ReportDocument::Element& element) {
            return element.strip == "outputlead" && element.text == "-300";
        });
    ASSERT_NE(page.elements().end(), tick);
    double tickPercent = 0;
    ASSERT_EQ(1, sscanf(tick->attributes.at("style").c_str(), "top:%lf", &tickPercent));
    const auto leads = page.find("Audio lead", "outputlead", "lead");
    ASSERT_EQ(1u, leads.size());
    const auto settled = ReportDocument::extentAt(leads.front().attributes.at("d"), 0.8);
    EXPECT_GT(settled.bottom, 0);
    EXPECT_LT(settled.bottom, 10 * tickPercent);
}

TEST(HwSyncReplayReport, FaultsDecisionsValuesAndOriginAreOnThePage) {
    const ScratchFolder folder;
    writeAudio(folder / "in.wav", kWav16, noise(48000, 2, 2 * 48000, 3));
    ToolRun::hwsync({"pack", folder / "in.wav", "-o", folder / "s.hws", "--gap", "1s:200ms",
                     "--fault", "garbage=2"});
    const auto result = ToolRun::hwsync({"replay", folder / "s.hws", "--event", "500ms:drift=100",
                                         "--csv", "--report", folder / "r.html"});
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const ReportDocument page(folder / "r.html");
    expectSelfContained(page);
    // Faults as inspect lists them, each with burst and offset.
    const Json rows =
        Json::parse(ToolRun::hwsync({"inspect", folder / "s.hws", "--json"}).output)["rows"];
    size_t faultCount = 0;
    for (const Json& row : rows) {
        const bool isGarbage = row["kind"] == "garbage";
        if (!isGarbage && row["notes"].empty()) {
            continue;
        }
        ++faultCount;
        const std::string offset = row["offset"].dump();
        const auto cell = std::find_if(page.elements().begin(), page.elements().end(),
                                       [&](const ReportDocument::Element& element) {
                                           return element.name == "td" && element.text == offset;
                                       });
        ASSERT_NE(page.elements().end(), cell) << offset;
        EXPECT_NE(std::string::npos, (cell + 1)->text.find(isGarbage ? row["bytes"].dump() : "gap"))
            << (cell + 1)->text;
        EXPECT_TRUE(isGarbage || (cell - 1)->text == row["index"].dump()) << (cell - 1)->text;
    }
    EXPECT_EQ(3u, faultCount);
    EXPECT_EQ(faultCount, toldBy(page.find("s.hws", "faults", "mark fault")));
    EXPECT_NE(std::string::npos, page.bytes().find(">clock: drift +100 ppm<"));
    // Under the pointer: a value for each of the 1000 columns.
    const auto readings = page.find("Audio lead", "parserlead", "reading");
    ASSERT_EQ(2u, readings.size());
    EXPECT_EQ("burst", readings.front().attributes.at("data-name"));
    // Columns before the first write has led to a decision have none.
    const std::string& bursts = readings.front().attributes.at("data-low");
    EXPECT_EQ('0', bursts.at(bursts.find_first_not_of(',')));
    for (const ReportDocument::Element& reading : readings) {
        const std::string& values = reading.attributes.at("data-low");
        EXPECT_EQ(1000, std::count(values.begin(), values.end(), ','));
    }
    EXPECT_NE(std::string::npos, page.figure("command").find("--event 500ms:drift=100"));
    EXPECT_EQ("48000 Hz, 2 channels, 16 bits", page.figure("payload"));
    EXPECT_NE(std::string::npos, page.figure("library").find("libstreamproxy "));
}

}  // namespace
}  // namespace android
