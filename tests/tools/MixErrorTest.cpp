#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

class MixErrors : public ::testing::Test {
protected:
    MixErrors() {
        Audio audio{.rateHz = 48000, .channelCount = 2, .samples = {}};
        for (int32_t i = 0; i < 96000; ++i) {
            audio.samples.push_back((i * 7919 % 20000 - 10000) * 65536);
        }
        writeAudio(folder / "good.wav", kWav16, audio);
        writeAudio(folder / "good.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, audio);
        audio.rateHz = 3999;
        writeAudio(folder / "slow.wav", kWav16, audio);
        audio.samples.clear();
        writeAudio(folder / "silent.wav", kWav16, audio);
    }

    void writeText(const std::string& name, const std::string& text) {
        std::ofstream(folder / name) << text;
    }

    /** Runs and expects the exit code, the words in the message, and no file left behind. */
    void expectFailure(std::vector<std::string> arguments, int exitCode,
                       const std::vector<std::string>& words) {
        arguments.insert(arguments.end(), {"-o", folder / "mix.wav"});
        const auto result = ToolRun::mix(arguments);
        EXPECT_EQ(exitCode, result.exitCode) << result.messages;
        for (const std::string& word : words) {
            EXPECT_NE(std::string::npos, result.messages.find(word))
                << "'" << word << "' is not in: " << result.messages;
        }
        EXPECT_FALSE(std::filesystem::exists(folder / "mix.wav"));
    }

    ScratchFolder folder;
};

TEST_F(MixErrors, NameTheInputThatIsNoAudio) {
    writeText("empty.wav", "");
    writeText("text.wav", "These are words, not samples.\n");
    std::filesystem::create_directory(folder / "folder");
    expectFailure({folder / "missing.wav"}, 1, {"missing.wav: No such file"});
    expectFailure({folder / "folder"}, 1, {"folder: is a directory"});
    expectFailure({folder / "empty.wav"}, 1, {"empty.wav: is empty"});
    expectFailure({folder / "text.wav"}, 1, {"text.wav: is not audio"});
    expectFailure({folder / "silent.wav"}, 1, {"silent.wav: holds no audio"});
    expectFailure({folder / "good.wav", folder / "slow.wav"}, 1, {"slow.wav", "3999 Hz"});
}

TEST_F(MixErrors, NameTheSettingOrOption) {
    const std::string good = folder / "good.wav";
    expectFailure({good + "@gain=+1dB"}, 2, {"good.wav: gain", "+1dB"});
    expectFailure({good + "@gain=loud"}, 2, {"good.wav: gain", "loud"});
    expectFailure({good + "@balance=2"}, 2, {"good.wav: balance"});
    expectFailure({good + "@volume=3"}, 2, {"good.wav: volume", "lacks a gain"});
    expectFailure({good + "@start=-1"}, 2, {"good.wav: start"});
    expectFailure({good + "@pitch=2"}, 2, {"good.wav", "'pitch'"});
    expectFailure({good, "--rate", "3999"}, 2, {"--rate"});
    expectFailure({good, "--rate", "768001"}, 2, {"--rate"});
    expectFailure({good, "--format", "24"}, 2, {"--format"});
    expectFailure({good, "--library", folder / "none.so"}, 1, {"none.so", "--library"});
    expectFailure({good, "--library", STREAMPROXY_PLATFORM_LIBRARY}, 1,
                  {"has no function create_audio_proxy_pipeline"});
    writeText("props", "a=b\nnonsense\n");
    expectFailure({good, "--properties", folder / "props"}, 2, {"props, line 2"});
    expectFailure({good, "--properties", folder / "none"}, 1, {"none: can't be read"});
    EXPECT_EQ(2, ToolRun::mix({good, "-o", folder / "mix.mp4"}).exitCode);
    EXPECT_EQ(2, ToolRun::mix({good}).exitCode);
}

TEST_F(MixErrors, TruncatedAndCorruptedFilesAreRefusedUnlessAskedFor) {
    std::filesystem::resize_file(folder / "good.wav", 100044);
    expectFailure({folder / "good.wav"}, 1, {"good.wav: is truncated"});
    // In the middle, past what the streams are filled with before the mix starts.
    std::fstream flac(folder / "good.flac", std::ios::in | std::ios::out | std::ios::binary);
    flac.seekp(static_cast<std::streamoff>(std::filesystem::file_size(folder / "good.flac") / 2));
    flac << std::string(20000, '\x55');
    flac.close();
    auto result = ToolRun::mix({folder / "good.flac", "-o", folder / "part.wav"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_NE(std::string::npos, result.messages.find("good.flac: is corrupted after"))
        << result.messages;

    result = ToolRun::mix({folder / "good.wav", "-o", folder / "mix.wav", "--allow-truncated"});
    EXPECT_EQ(0, result.exitCode) << result.messages;
    EXPECT_EQ(25000, readAudio(folder / "mix.wav").frameCount());
    result = ToolRun::mix({folder / "good.flac", "-o", folder / "part.wav", "--allow-truncated"});
    EXPECT_EQ(0, result.exitCode) << result.messages;
}

TEST_F(MixErrors, OutputsThatCanNotBeWritten) {
    const std::string good = folder / "good.wav";
    auto result = ToolRun::mix({good, "-o", folder / "none/mix.wav"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_NE(std::string::npos, result.messages.find("none/mix.wav: can't be written"));

    // A full disk, under a name that says what to write.
    std::filesystem::create_symlink("/dev/full", folder / "full.wav");
    result = ToolRun::mix({good, "-o", folder / "full.wav"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_NE(std::string::npos,
              result.messages.find("full.wav: writing failed: No space left on device"))
        << result.messages;
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));

    const auto before = std::filesystem::file_size(good);
    std::filesystem::create_hard_link(good, folder / "same.wav");
    result = ToolRun::mix({good, "-o", folder / "same.wav"});
    EXPECT_EQ(2, result.exitCode);
    EXPECT_NE(std::string::npos, result.messages.find("same.wav: is also an input"));
    EXPECT_EQ(before, std::filesystem::file_size(good));
}

}  // namespace
}  // namespace android
