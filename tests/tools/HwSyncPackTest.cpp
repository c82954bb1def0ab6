#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

using Json = nlohmann::json;

constexpr int64_t kHeader = 20;
constexpr int64_t kPayload = 3840;  // 20 ms at 48 kHz, 16-bit stereo
constexpr int64_t kExtension = 1255;

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Packs eight seconds of mono, 400 bursts unless asked for otherwise. */
class HwSyncPack : public ::testing::Test {
protected:
    HwSyncPack() { writeAudio(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio); }

    std::string pack(std::vector<std::string> options) {
        options.insert(options.begin(), "pack");
        // Behind the options: one that may be given often must not take it for its own.
        options.insert(options.end(), {folder / "in.wav", "-o", folder / "s.hws"});
        const auto result = ToolRun::hwsync(options);
        EXPECT_EQ(0, result.exitCode) << result.messages;
        return folder / "s.hws";
    }

    /** Expects these counts, and 0 for every other irregularity; what inspect printed. */
    static Json inspect(const std::string& path, const Json& expected) {
        const auto result = ToolRun::hwsync({"inspect", path, "--json"});
        EXPECT_EQ(0, result.exitCode) << result.messages;
        const Json found = Json::parse(result.output);
        const auto count = [&](const char* name) { return found["summary"][name].get<int64_t>(); };
        for (const char* name :
             {"mode_changes", "garbage_runs", "version_1_magics", "timestamp_gaps",
              "timestamp_overlaps", "timestamp_jumps_back", "empty_bursts", "absurd_sizes",
              "short_payload_offsets", "absurd_payload_offsets", "cut_header_bytes",
              "missing_payload_bytes"}) {
            EXPECT_EQ(expected.value(name, 0), count(name)) << name;
        }
        EXPECT_EQ(expected.value("bursts", 400), count("bursts"));
        // Every byte of the file is accounted for.
        EXPECT_EQ(count("bytes"), count("bursts") * kHeader + count("extension_bytes") +
                                      count("payload_bytes") + count("garbage_bytes") +
                                      count("cut_header_bytes"));
        return found;
    }

    ScratchFolder folder;
    const Audio audio = noise(48000, 1, 8 * 48000, 1);
};

TEST_F(HwSyncPack, SoundStreamIsFoundAgainByteByByte) {
    // With this extension a magic lies across the first mebibyte, where the tool's reading cuts it.
    const std::string path = pack({"--extension", "1255", "--first-pts", "1.5s"});
    const Json found = inspect(path, Json::object());
    const std::string bytes = contentOf(path);
    for (size_t i = 0; i < 400; ++i) {
        const Json& row = found["rows"][i];
        const size_t offset = i * (kHeader + kExtension + kPayload);
        ASSERT_EQ(offset, row["offset"].get<size_t>());
        ASSERT_EQ(1'500'000'000 + i * 20'000'000, row["timestamp_ns"].get<size_t>());
        // The first sample of the burst, little-endian, left and right.
        const auto sample = static_cast<uint32_t>(audio.samples[i * 960]) >> 16;
        const std::string half = {static_cast<char>(sample), static_cast<char>(sample >> 8)};
        ASSERT_EQ(half + half, bytes.substr(offset + kHeader + kExtension, 4)) << "burst " << i;
    }
}

TEST_F(HwSyncPack, EveryFaultIsCounted) {
    inspect(pack({"--fault", "garbage=3"}), {{"garbage_runs", 3}});
    inspect(pack({"--fault", "wrong-size=2"}), {{"garbage_runs", 2}, {"timestamp_gaps", 2}});
    inspect(pack({"--fault", "absurd-size"}),
            {{"absurd_sizes", 1}, {"garbage_runs", 1}, {"timestamp_gaps", 1}});
    inspect(pack({"--fault", "version-1=2"}),
            {{"bursts", 398}, {"version_1_magics", 2}, {"garbage_runs", 2}, {"timestamp_gaps", 2}});
    // The next header's bytes complete the one that was cut, and its own payload comes short.
    inspect(pack({"--fault", "cut-header", "--length", "4s"}), {{"bursts", 199},
                                                                {"garbage_runs", 1},
                                                                {"short_payload_offsets", 1},
                                                                {"timestamp_gaps", 1},
                                                                {"timestamp_jumps_back", 1}});
    const std::vector<std::string> options = {"--gap",    "2s:500ms", "--free-run", "4s:5s",
                                              "--jitter", "0.4ms",    "--seed",     "7"};
    const std::string path = pack(options);
    const std::string bytes = contentOf(path);
    inspect(path, {{"bursts", 375}, {"timestamp_gaps", 1}, {"mode_changes", 2}});
    EXPECT_EQ(bytes, contentOf(pack(options)));
    EXPECT_NE(bytes, contentOf(pack({options.begin(), options.end() - 2})));

    // Faults that would not be there are told.
    const std::string input = folder / "in.wav";
    const auto idle = ToolRun::hwsync({"pack", input, "-o", path, "--length", "2s", "--gap",
                                       "1:30:2", "--gap", "1s:5ms", "--free-run", "10ms:15ms"});
    EXPECT_TRUE(idle.says("--gap 1:30:2 has no effect")) << idle.messages;
    EXPECT_FALSE(idle.says("--gap 1s:5ms")) << idle.messages;
    EXPECT_TRUE(idle.says("--free-run 10ms:15ms has no effect")) << idle.messages;
    const auto nothing = ToolRun::hwsync({"pack", input, "-o", path, "--length", "0"});
    EXPECT_TRUE(nothing.says("--length: leaves nothing")) << nothing.messages;

    const auto size = std::filesystem::file_size(pack({}));
    std::filesystem::resize_file(path, size - 100);
    inspect(path, {{"missing_payload_bytes", 100}});
    std::filesystem::resize_file(path, size - kPayload - 7);
    inspect(path, {{"bursts", 399}, {"cut_header_bytes", 13}});
}

TEST_F(HwSyncPack, SlowDriftAndJitterAreToldFromFaults) {
    const std::string path =
        pack({"--jitter", "3ms", "--gap", "2s:500ms", "--fault", "garbage=3", "--seed", "5"});
    // 1000 ppm: 20 us a burst, far below any tolerance.
    std::string bytes = contentOf(path);
    const Json rows = Json::parse(ToolRun::hwsync({"inspect", path, "--json"}).output)["rows"];
    for (const Json& row : rows) {
        if (row["kind"] == "burst") {
            uint64_t ptsNs = row["timestamp_ns"].get<uint64_t>() * 1001 / 1000;
            for (size_t at = row["offset"].get<size_t>() + 15, i = 0; i < 8; ++i, ptsNs >>= 8) {
                bytes[at - i] = static_cast<char>(ptsNs);
            }
        }
    }
    std::ofstream(path, std::ios::binary) << bytes;
    const auto result =
        ToolRun::hwsync({"inspect", path, "--json", "--summary", "--tolerance", "7ms"});
    const Json summary = Json::parse(result.output)["summary"];
    EXPECT_EQ(1, summary["timestamp_gaps"]);
    const double errorPpm = summary["drift_error_ppm"].get<double>();
    EXPECT_LT(errorPpm, 150);
    EXPECT_NEAR(1000, summary["drift_ppm"].get<double>(), 2 * errorPpm);
    EXPECT_NEAR(7.5, summary["drift_ns"].get<double>() / 1e6, 1.2);
    // The gap and the drift.
    EXPECT_NEAR(508, summary["offset_ns"].get<double>() / 1e6, 6);
    // Spread evenly over +-3 ms.
    EXPECT_NEAR(3 / std::sqrt(3), summary["jitter_rms_ns"].get<double>() / 1e6, 0.15);
    EXPECT_NEAR(2.85, summary["jitter_95_ns"].get<double>() / 1e6, 0.2);
    EXPECT_GT(summary["max_step_error_ns"], 490e6);
    EXPECT_LT(summary["sound_max_step_error_ns"], 6.1e6);
    // Jitter beyond the tolerance is no wrong format; another rate is, and is named.
    const auto jittered = ToolRun::hwsync({"inspect", path, "--summary"}).output;
    EXPECT_NE(std::string::npos, jittered.find("ppm against the payload"));
    EXPECT_EQ(std::string::npos, jittered.find("--channels"));
    const auto misread = ToolRun::hwsync({"inspect", path, "--summary", "--rate", "44100"}).output;
    EXPECT_NE(std::string::npos, misread.find("The timestamps fit 48000 Hz")) << misread;
}

TEST_F(HwSyncPack, StreamsBeyondFourGigabytesKeepTheirOffsets) {
    const std::string path = pack({"--length", "20ms"});
    const std::string burst = contentOf(path);
    // Two payloads as long as can be, then a burst beyond 32 bits of offset.
    const std::string header = burst.substr(0, 4) + "\x7f\xff\xff\xff" + burst.substr(8, 12);
    const int64_t huge = kHeader + 0x7fffffff;
    std::ofstream file(path, std::ios::binary);
    file << header;
    file.seekp(huge) << header;
    file.seekp(2 * huge) << "\x01\x02\x03" << burst;
    file.close();
    // Payloads of hours: the timestamps stand still, and are too early by far.
    const Json found = inspect(
        path, {{"bursts", 3}, {"absurd_sizes", 2}, {"garbage_runs", 1}, {"timestamp_overlaps", 2}});
    ASSERT_EQ(4u, found["rows"].size());
    EXPECT_EQ(huge, found["rows"][1]["offset"]);
    EXPECT_EQ(2 * huge, found["rows"][2]["offset"]);
    EXPECT_EQ(2 * huge + 3, found["rows"][3]["offset"]);
}

}  // namespace
}  // namespace android
