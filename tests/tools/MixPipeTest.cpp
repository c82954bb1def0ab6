#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "tests/tools/ToolRun.h"

namespace android {
namespace {

std::vector<uint8_t> rawOf(const Audio& audio, int bits) {
    std::vector<uint8_t> bytes;
    for (const int32_t sample : audio.samples) {
        for (int shift = 32 - bits; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(sample >> shift));
        }
    }
    return bytes;
}

std::vector<uint8_t> floatsOf(const Audio& audio) {
    std::vector<uint8_t> bytes(audio.samples.size() * sizeof(float));
    for (size_t i = 0; i < audio.samples.size(); ++i) {
        const float sample = static_cast<float>(audio.samples[i]) / 2147483648.0f;
        memcpy(bytes.data() + i * sizeof(sample), &sample, sizeof(sample));
    }
    return bytes;
}

std::vector<uint8_t> contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** A program that reads from a pipe. */
class Piped {
public:
    explicit Piped(const std::vector<std::string>& arguments, const std::string& command = "mix")
        : mRun(arguments, command, {.in = mPipe.ends[0]}) {
        close(mPipe.ends[0]);
    }
    // In pieces that cut frames.
    void send(const std::vector<uint8_t>& bytes) const {
        constexpr size_t kPiece = 4099;
        for (size_t begin = 0; begin < bytes.size(); begin += kPiece) {
            const size_t byteCount = std::min(kPiece, bytes.size() - begin);
            // Nobody reads any more when an error ended the program.
            if (write(mPipe.ends[1], bytes.data() + begin, byteCount) < 0) {
                return;
            }
        }
    }
    ~Piped() { endPipe(); }
    Piped(const Piped&) = delete;
    Piped& operator=(const Piped&) = delete;
    void endPipe() { close(std::exchange(mPipe.ends[1], -1)); }
    ToolRun& run() { return mRun; }

private:
    struct Pipe {
        Pipe() {
            signal(SIGPIPE, SIG_IGN);
            EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        }
        int ends[2] = {-1, -1};
    } mPipe;
    ToolRun mRun;
};

ToolRun::Result mixPiped(const std::vector<uint8_t>& bytes,
                         const std::vector<std::string>& arguments) {
    Piped piped(arguments);
    piped.send(bytes);
    piped.endPipe();
    return piped.run().wait();
}

TEST(MixPipe, RawPcmIsHeardAsTheSameAudioInAFile) {
    const ScratchFolder folder;
    const Audio wide = noise(48000, 2, 70001, 1);
    const Audio mono = noise(32000, 1, 20000, 2);
    writeAudio(folder / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, wide);
    writeAudio(folder / "mono.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, mono);
    const auto expectSame = [&](const std::vector<uint8_t>& bytes, const std::string& settings,
                                const std::string& file, const std::string& others) {
        const std::vector<std::string> options = {"--rate", "48000", "--format", "32"};
        std::vector<std::string> piped = {"-@" + settings, others, "-o", folder / "piped.wav"};
        std::vector<std::string> read = {others, file, "-o", folder / "read.wav"};
        piped.insert(piped.end(), options.begin(), options.end());
        read.insert(read.end(), options.begin(), options.end());
        const auto result = mixPiped(bytes, piped);
        EXPECT_EQ(0, result.exitCode) << result.messages;
        ToolRun::mixWell(read);
        EXPECT_EQ(readAudio(folder / "read.wav").samples, readAudio(folder / "piped.wav").samples);
        return result;
    };
    auto result =
        expectSame(rawOf(wide, 16), "gain=0.5,start=100ms,format=s16",
                   folder / "wide.wav@gain=0.5,start=100ms", folder / "mono.wav@volume=200ms:0.2");
    EXPECT_TRUE(result.says("-: 48000 Hz, 16-bit PCM from a pipe, stereo")) << result.messages;
    EXPECT_TRUE(result.says("70001 frames written, 70001 heard")) << result.messages;
    expectSame(rawOf(wide, 24), "format=s24", folder / "wide.wav", folder / "mono.wav");
    expectSame(floatsOf(wide), "format=f32", folder / "wide.wav", folder / "mono.wav");
    expectSame(rawOf(mono, 32), "rate=32000,channels=1,format=s32", folder / "mono.wav",
               folder / "wide.wav");
    // What the settings cut off is not waited for, and the program before the pipe may go on.
    result = mixPiped(rawOf(wide, 16), {"-@length=0.5", "-o", folder / "short.wav"});
    EXPECT_EQ(0, result.exitCode) << result.messages;
    EXPECT_EQ(24000, readAudio(folder / "short.wav").frameCount());
}

TEST(MixPipe, FilesAreKnownByTheirFirstBytes) {
    const ScratchFolder folder;
    const Audio audio = noise(44100, 2, 30001, 1);
    const auto expectSame = [&](const std::vector<uint8_t>& bytes, const std::string& file,
                                const std::string& settings) {
        const auto result =
            mixPiped(bytes, {"-@" + settings, "-o", folder / "piped.wav", "--format", "32"});
        EXPECT_EQ(0, result.exitCode) << result.messages;
        ToolRun::mixWell({file + "@" + settings, "-o", folder / "read.wav", "--format", "32"});
        EXPECT_EQ(readAudio(folder / "read.wav").samples, readAudio(folder / "piped.wav").samples)
            << file;
    };
    for (const auto& [name, format] : std::initializer_list<std::pair<std::string, int>>{
             {"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
             {"b.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
             {"c.wav", SF_FORMAT_RF64 | SF_FORMAT_PCM_32},
             {"d.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
             {"e.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8},  // one that is kept first
             {"f.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
             {"g.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
             {"h.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16}}) {
        writeAudio(folder / name, format, audio);
        // A chunk behind the samples is none of them.
        std::vector<uint8_t> bytes = contentOf(folder / name);
        if (name.ends_with("wav")) {
            const std::string chunk("LIST\4\0\0\0INFO", 12);
            bytes.insert(bytes.end(), chunk.begin(), chunk.end());
        }
        expectSame(bytes, folder / name, "gain=0.5");
        expectSame(bytes, folder / name, "from=0:00.25,length=100ms");
    }
    // Whoever writes into a pipe can't know how long it becomes.
    const std::vector<uint8_t> whole = contentOf(folder / "a.wav");
    ASSERT_EQ("data", std::string(whole.begin() + 36, whole.begin() + 40));
    for (const uint8_t byte : {uint8_t{0}, uint8_t{0xff}}) {
        std::vector<uint8_t> streamed = whole;
        std::fill_n(streamed.begin() + 4, 4, byte);
        std::fill_n(streamed.begin() + 40, 4, byte);
        expectSame(streamed, folder / "a.wav", "gain=1");
    }
    // A stream is heard before its end.
    Piped piped({"-@length=0.2", "-o", folder / "live.wav"});
    piped.send(whole);
    EXPECT_EQ(0, piped.run().wait().exitCode);  // the pipe is still open
    EXPECT_EQ(8820, readAudio(folder / "live.wav").frameCount());
}

TEST(MixPipe, MistakesAreNamedAndLeaveNoFile) {
    const ScratchFolder folder;
    const Audio audio = noise(48000, 2, 4800, 1);
    writeAudio(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio);
    const auto expectFailure = [&](const std::vector<uint8_t>& bytes,
                                   std::vector<std::string> arguments, int exitCode,
                                   const std::string& words) {
        arguments.insert(arguments.end(), {"-o", folder / "mix.wav"});
        const auto result = mixPiped(bytes, arguments);
        EXPECT_EQ(exitCode, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says(words)) << "'" << words << "' is not in: " << result.messages;
        EXPECT_FALSE(std::filesystem::exists(folder / "mix.wav"));
    };
    std::vector<uint8_t> bytes = rawOf(audio, 16);
    expectFailure(bytes, {"-", "-"}, 2, "-: given twice");
    expectFailure(bytes, {"-@rate=44100", "-"}, 2, "-: given twice");
    expectFailure(bytes, {"-@rate=3999"}, 2, "-: rate");
    expectFailure(bytes, {"-@channels=1.5"}, 2, "-: channels");
    expectFailure(bytes, {"-@format=float"}, 2, "write s16, s24, s32 or f32");
    expectFailure(bytes, {"-@tempo=2"}, 2, "rate, channels and format");
    expectFailure(bytes, {folder / "in.wav@rate=8000"}, 2, "is for '-' alone");
    expectFailure(bytes, {"-", "--loop", "2"}, 2, "can't be played again");
    expectFailure({}, {"-"}, 1, "brought no audio");
    std::vector<uint8_t> file = bytes;
    std::copy_n("RIFF", 4, file.begin());
    expectFailure(file, {"-"}, 1, "-: is not audio that can be read here");
    expectFailure(file, {"-@rate=44100"}, 2, "leave rate, channels and format out");
    std::copy_n("1234ftyp", 8, file.begin());
    expectFailure(file, {"-"}, 1, "-: is MP4 (AAC and others), which can't be read here");
    std::vector<uint8_t> wav = contentOf(folder / "in.wav");
    wav.resize(44 + 40);  // the end comes while the streams are filled
    expectFailure(wav, {"-"}, 1, "-: is truncated");
    expectFailure(wav, {"-@from=1:00"}, 1, "-: is truncated");
    expectFailure(bytes, {"-@from=1:00"}, 1, "-: from: the pipe ended after 0.1");
    // A few frames: the end comes while the streams are filled.
    bytes.resize(4 * 100 + 3);
    expectFailure(bytes, {"-"}, 1, "ends inside a frame (3 of 4 bytes)");
    const auto result = mixPiped(bytes, {"-", "--allow-truncated", "-o", folder / "mix.wav"});
    EXPECT_EQ(0, result.exitCode) << result.messages;
    EXPECT_EQ(100, readAudio(folder / "mix.wav").frameCount());
}

TEST(MixPipe, TheInputThatTheMixWaitedForIsNamed) {
    const ScratchFolder folder;
    const Audio audio = noise(48000, 2, 48000, 1);
    writeAudio(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio);
    Piped piped({folder / "in.wav@loop=3", "-", "--realtime", "-o", folder / "mix.wav", "--json"});
    piped.send(rawOf(audio, 16));
    // The stall is longer than a write waits.
    std::this_thread::sleep_for(std::chrono::milliseconds(2600));
    piped.send(rawOf(audio, 16));
    piped.endPipe();
    const auto result = piped.run().wait();
    ASSERT_EQ(0, result.exitCode) << result.messages;
    const auto json = nlohmann::json::parse(result.output);
    const auto& file = json["inputs"][0];
    const auto& pipe = json["inputs"][1];
    ASSERT_EQ("-", pipe["file"]);
    EXPECT_LE(1, pipe["late_count"].get<int>());
    EXPECT_LE(1e9, pipe["late_longest_ns"].get<double>());
    EXPECT_LE(pipe["late_longest_ns"].get<double>(), pipe["late_ns"].get<double>());
    EXPECT_LT(file["late_ns"].get<double>(), pipe["late_ns"].get<double>());
    EXPECT_LE(1, file["short_writes"].get<int>());
    EXPECT_TRUE(result.says("the mix waited for -;")) << result.messages;
}

TEST(MixPipe, TheMixGoesToStandardOutputAsWav) {
    const ScratchFolder folder;
    const Audio audio = noise(48000, 2, 30001, 1);
    writeAudio(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio);
    for (const std::string bits : {"16", "32"}) {
        const auto sent =
            ToolRun::mixWell({folder / "in.wav@gain=0.7", "-o", "-", "--format", bits});
        ToolRun::mixWell({folder / "in.wav@gain=0.7", "-o", folder / "file.wav", "--format", bits});
        const auto received = mixPiped({sent.output.begin(), sent.output.end()},
                                       {"-", "-o", folder / "received.wav", "--format", bits});
        EXPECT_TRUE(received.says("-: 48000 Hz, " + bits + "-bit PCM from a pipe, stereo"))
            << received.messages;
        ToolRun::mixWell({folder / "file.wav", "-o", folder / "again.wav", "--format", bits});
        EXPECT_EQ(readAudio(folder / "again.wav").samples,
                  readAudio(folder / "received.wav").samples);
    }
    for (const std::string option : {"--json", "--dump"}) {
        const auto refused = ToolRun::mix({folder / "in.wav", "-o", "-", option});
        EXPECT_EQ(2, refused.exitCode);
        EXPECT_TRUE(refused.says("standard output takes one result alone")) << refused.messages;
        EXPECT_TRUE(refused.output.empty());
    }
}

TEST(MixPipe, BurstStreamsPassThroughPipesLikeFiles) {
    const ScratchFolder folder;
    writeAudio(folder / "in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, noise(48000, 2, 24000, 1));
    const auto run = [](const std::vector<uint8_t>& bytes, const std::vector<std::string>& words) {
        Piped piped(words, "hwsync");
        piped.send(bytes);
        piped.endPipe();
        return piped.run().wait();
    };
    const auto packed = run(contentOf(folder / "in.flac"), {"pack", "-", "-o", "-"});
    EXPECT_EQ(0, packed.exitCode) << packed.messages;
    ToolRun::hwsync({"pack", folder / "in.flac", "-o", folder / "in.hws"});
    const std::vector<uint8_t> bytes(packed.output.begin(), packed.output.end());
    EXPECT_EQ(contentOf(folder / "in.hws"), bytes);

    const auto inspected = run(bytes, {"inspect", "-", "--summary"});
    EXPECT_TRUE(inspected.output.find("-: 96500 bytes, 25 bursts") != std::string::npos)
        << inspected.output << inspected.messages;
    // The clock's course is made of the machine's time, the bursts are not.
    const auto replayed = run(bytes, {"replay", "-", "--summary"});
    EXPECT_EQ(0, replayed.exitCode) << replayed.messages;
    EXPECT_TRUE(replayed.output.find("-: 96500 bytes, 25 bursts") != std::string::npos)
        << replayed.output;
    EXPECT_TRUE(run(bytes, {"replay", "-", "-o", "-"}).says("takes one result alone"));
    EXPECT_TRUE(run({}, {"inspect", "-"}).says("-: holds no burst"));
    EXPECT_TRUE(run({1, 2, 3}, {"pack", "-", "-o", folder / "none.hws"})
                    .says("does not begin as an audio file"));
}

TEST(MixPipe, AnInterruptDoesNotWaitForASilentPipe) {
    const ScratchFolder folder;
    const Audio audio = noise(48000, 2, 48000, 1);
    for (const bool hasBegun : {true, false}) {
        const std::string path = folder / (hasBegun ? "begun.wav" : "none.wav");
        Piped piped({"-", "-o", path});
        if (hasBegun) {
            piped.send(rawOf(audio, 16));
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
        piped.run().signal(SIGTERM);
        const auto result = piped.run().wait();  // the pipe is still open
        EXPECT_EQ(143, result.exitCode) << result.messages;
        EXPECT_EQ(hasBegun, std::filesystem::exists(path));
        EXPECT_TRUE(!hasBegun || readAudio(path).frameCount() > 40000);
    }
}

}  // namespace
}  // namespace android
