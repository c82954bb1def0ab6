#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

class MixErrors : public ::testing::Test {
protected:
    MixErrors() {
        const Audio audio = noise(48000, 2, 48000, 1);
        writeAudio(good, kWav16, audio);
        writeAudio(folder / "good.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, audio);
        writeAudio(folder / "slow.wav", kWav16, noise(3999, 2, 4000, 1));
        writeAudio(folder / "silent.wav", kWav16, noise(48000, 2, 0, 1));
    }
    void writeText(const std::string& name, const std::string& text) {
        std::ofstream(folder / name) << text;
    }
    // Runs and expects the exit code, the words in the message, and no file left behind.
    void expectFailure(std::vector<std::string> arguments, int exitCode, const std::string& words,
                       const std::string& output = "mix.wav") {
        arguments.insert(arguments.end(), {"-o", folder / output});
        const auto result = ToolRun::mix(arguments);
        EXPECT_EQ(exitCode, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says(words)) << "'" << words << "' is not in: " << result.messages;
        EXPECT_FALSE(std::filesystem::exists(folder / "mix.wav"));
    }

    const ScratchFolder folder;
    const std::string good = folder / "good.wav";
};

TEST_F(MixErrors, NameTheInputThatIsNoAudio) {
    writeText("empty.wav", "");
    writeText("text.wav", "These are words, not samples.\n");
    expectFailure({folder / "missing.wav"}, 1, "missing.wav: No such file");
    expectFailure({folder / "."}, 1, "is a directory");
    expectFailure({folder / "empty.wav"}, 1, "empty.wav: is empty");
    expectFailure({folder / "text.wav"}, 1, "text.wav: is not audio");
    // Of other formats, the way in.
    const std::string pipe = "; pipe it through ffmpeg: ffmpeg -v error -i FILE -f wav - |";
    for (const auto& [beginning, name] : std::initializer_list<std::pair<std::string, std::string>>{
             {"\xff\xf1\x50\x80", "AAC"},
             {"\xff\xf9\x50\x80", "AAC"},
             {"\x0b\x77\xd2\x31", "AC-3"},
             {"0&\xb2u\x8e\x66\xcf\x11", "WMA"},
             {"1234ftypM4A ", "MP4 (AAC and others)"}}) {
        writeText("foreign", beginning + "and so on");
        expectFailure({folder / "foreign"}, 1,
                      "foreign: is " + name + ", which can't be read here" + pipe);
    }
    // It has the head alone; nobody can tell here whether it lacks anything.
    writeText("cut.opus", "OggS" + std::string(24, '\1') + "OpusHead");
    expectFailure({folder / "cut.opus"}, 1, "is Opus that libsndfile stumbles over");
    expectFailure({folder / "silent.wav"}, 1, "silent.wav: holds no audio");
    expectFailure({good, folder / "slow.wav"}, 1, "3999 Hz");
}

TEST_F(MixErrors, NameTheSettingOrOption) {
    expectFailure({good + "@gain=+25dB"}, 2, "good.wav: gain");
    expectFailure({good + "@volume=1:30"}, 2, "a gain of 30");
    expectFailure({good + "@from=0:01"}, 2, "good.wav: from: it is only 1.0");
    expectFailure({good + "@start=0:60"}, 2, "'0:60' is not a time");
    expectFailure({good + "@downmix=5.1"}, 2, "write itu or off");
    expectFailure({good + "@gain=loud"}, 2, "loud");
    expectFailure({good + "@balance=2"}, 2, "good.wav: balance");
    expectFailure({good + "@volume=3"}, 2, "lacks a gain");
    expectFailure({good + "@start=-1"}, 2, "good.wav: start");
    expectFailure({good + "@length=0"}, 2, "nothing to play");
    expectFailure({good + "@pitch=2"}, 2, "'pitch'");
    expectFailure({good, "--rate", "3999"}, 2, "--rate");
    expectFailure({good, "--rate", "768001"}, 2, "--rate");
    expectFailure({good, "--format", "24"}, 2, "--format");
    expectFailure({good, "--headroom", "nan"}, 2, "--headroom: nan is not a number");
    expectFailure({good, "--library", folder / "none.so"}, 1, "none.so");
    expectFailure({good, "--library", STREAMPROXY_PLATFORM_LIBRARY}, 1,
                  "has no function create_audio_proxy_pipeline");
    writeText("props", "a=b\nnonsense\n");
    expectFailure({good, "--properties", folder / "props"}, 2, "props, line 2");
    expectFailure({good, "--properties", folder / "none"}, 1, "none: can't be read");
    expectFailure({good}, 2, "", "mix.mp4");
}

TEST_F(MixErrors, NameTheHelpThatHasWhatIsMeant) {
    const auto expectUsage = [](const std::string& command,
                                const std::vector<std::string>& arguments, const std::string& words,
                                const std::string& help) {
        const auto result = ToolRun(arguments, command).wait();
        EXPECT_EQ(2, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says("streamproxy: " + words) && result.says("see '" + help + "'"))
            << result.messages;
    };
    expectUsage("mux", {good}, "'mux' is not known", "streamproxy --help");
    expectUsage("mix", {good, "--fromat", "16"}, "'--fromat'", "streamproxy mix --help");
    expectUsage("play", {good, "--device-buffer", "9"}, "--device-buffer",
                "streamproxy play --help");
    expectUsage("hwsync", {"pak"}, "'pak' is not known", "streamproxy hwsync --help");
    expectUsage("hwsync", {"pack", good}, "--output is required", "streamproxy hwsync pack --help");
    expectUsage("mix", {good, "--json", "--dump"}, "--", "streamproxy mix --help");

    const auto versions = ToolRun({}, "--version").wait();
    EXPECT_EQ(0, versions.exitCode);
    const std::string program = versions.output.substr(0, versions.output.find('\n'));
    EXPECT_EQ(0, versions.output.find(program + "\nlib" + program + ", /")) << versions.output;
}

TEST_F(MixErrors, TruncatedAndCorruptedFilesAreRefusedUnlessAskedFor) {
    std::filesystem::resize_file(good, 100044);
    expectFailure({good}, 1, "good.wav: is truncated");
    const std::string ogg = folder / "good.ogg";
    writeAudio(ogg, SF_FORMAT_OGG | SF_FORMAT_VORBIS, noise(48000, 2, 480000, 1));
    std::filesystem::resize_file(ogg, std::filesystem::file_size(ogg) / 2);
    expectFailure({ogg}, 1, "good.ogg: is truncated: its end is missing");
    ToolRun::mixWell(
        {ogg + "@loop=2", "-o", folder / "ogg.wav", "--allow-truncated", "--format", "32"});
    const int64_t left = readAudio(folder / "ogg.wav").frameCount();
    EXPECT_TRUE(left > 300'000 && left < 600'000 && left % 2 == 0) << left;
    // In the middle, past what the streams are filled with before the mix starts.
    const std::string flac = folder / "good.flac";
    std::fstream file(flac, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(flac) / 2));
    file << std::string(20000, '\x55');
    file.close();
    expectFailure({flac}, 1, "good.flac: is corrupted after", "part.wav");
    ToolRun::mixWell({good, "-o", folder / "mix.wav", "--allow-truncated"});
    EXPECT_EQ(25000, readAudio(folder / "mix.wav").frameCount());
    ToolRun::mixWell({flac, "-o", folder / "part.wav", "--allow-truncated"});
}

TEST_F(MixErrors, OutputsThatCanNotBeWritten) {
    expectFailure({good}, 1, "none/mix.wav: can't be written", "none/mix.wav");
    // A full disk, under a name that says what to write.
    std::filesystem::create_symlink("/dev/full", folder / "full.wav");
    expectFailure({good}, 1, "full.wav: writing failed: No space left on device", "full.wav");
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
    std::filesystem::create_hard_link(good, folder / "same.wav");
    expectFailure({good}, 2, "same.wav: is also an input", "same.wav");
    expectFailure({good, "--report", folder / "./good.wav"}, 2, "is also an input", "mix.wav");
    expectFailure({good, "--report", folder / "./mix.wav"}, 2, "is named twice", "mix.wav");
    EXPECT_EQ(48000, readAudio(good).frameCount());
}

TEST_F(MixErrors, FormatsHaveTheirLimitsNamed) {
    expectFailure({good, "--rate", "65536"}, 2, "up to 655350 Hz, above 65535 Hz in steps of 10",
                  "mix.flac");
    expectFailure({good, "--rate", "700000"}, 2, "up to 655350 Hz", "mix.flac");
    expectFailure({good, "--format", "f32"}, 2, "floating point; choose .wav, or --format 32",
                  "mix.flac");
    const auto result =
        ToolRun::mixWell({good, "--rate", "65540", "--format", "32", "-o", folder / "mix.flac"});
    EXPECT_TRUE(result.says("65540 Hz, 32-bit, stereo, 24-bit in the file")) << result.messages;
    for (const std::string bits : {"16", "32"}) {
        ToolRun::mixWell({good, "--format", bits, "-o", folder / "plain.wav"});
        SF_INFO info{};
        SNDFILE* file = sf_open((folder / "plain.wav").c_str(), SFM_READ, &info);
        EXPECT_EQ(SF_FORMAT_WAV | (bits == "16" ? SF_FORMAT_PCM_16 : SF_FORMAT_PCM_32),
                  info.format);
        sf_close(file);
    }
}

TEST_F(MixErrors, NamesWithControlCharactersLeaveTheTerminalAlone) {
    const std::string name = folder / "a\x1b[31m\n\xc2\x9b\xff\xc3\xa4.wav";
    std::filesystem::copy(good, name);
    const auto expectClean = [](const ToolRun::Result& result) {
        EXPECT_TRUE(result.says("a?[31m????\xc3\xa4.wav")) << result.messages;
        EXPECT_FALSE(result.says("\x1b") || result.says("\xc2\x9b")) << result.messages;
    };
    expectClean(ToolRun::mix({name, "-o", folder / "mix.wav"}));
    expectClean(ToolRun::mix({name + "x.wav", "-o", folder / "mix.wav"}));
    expectClean(ToolRun::mix({good, "--" + name}));
    expectClean(ToolRun::hwsync({"pack", name, "-o", name + ".hws"}));
    auto result = ToolRun::hwsync({"inspect", name + ".hws", "--summary"});
    result.messages += result.output;
    expectClean(result);
}

TEST_F(MixErrors, ADiskThatFillsUpLeavesAFileWithAllThatItTook) {
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    rlimit small = former;
    small.rlim_cur = 4'000'000;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    for (const std::string name : {"part.wav", "part.aiff", "part.caf"}) {
        setrlimit(RLIMIT_FSIZE, &small);
        ToolRun run({good, "--loop", "30", "-o", folder / name});
        setrlimit(RLIMIT_FSIZE, &former);
        const ToolRun::Result result = run.wait();
        EXPECT_EQ(1, result.exitCode);
        EXPECT_TRUE(result.says("writing failed: File too large")) << result.messages;
        EXPECT_GT(readAudio(folder / name).frameCount(), 900'000) << name;
        // It would refuse one whose header promises more.
        ToolRun::mixWell({folder / name, "-o", folder / "again.wav"});
    }
    std::signal(SIGXFSZ, handler);
}

}  // namespace
}  // namespace android
