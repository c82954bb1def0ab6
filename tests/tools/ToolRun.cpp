#include "tests/tools/ToolRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace android {

namespace {

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

}  // namespace

ScratchFolder::ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "streamproxy-XXXXXX").string();
    EXPECT_NE(nullptr, mkdtemp(name.data()));
    mPath = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
}

void writeAudio(const std::string& path, int format, const Audio& audio) {
    SF_INFO info{};
    info.samplerate = audio.rateHz;
    info.channels = audio.channelCount;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, file) << path << ": " << sf_strerror(nullptr);
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    EXPECT_EQ(audio.frameCount(), sf_writef_int(file, audio.samples.data(), audio.frameCount()));
    sf_close(file);
}

Audio readAudio(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_NE(nullptr, file) << path << ": " << sf_strerror(nullptr);
    Audio audio{.rateHz = info.samplerate, .channelCount = info.channels, .samples = {}};
    audio.samples.resize(static_cast<size_t>(info.frames * info.channels));
    EXPECT_EQ(info.frames, sf_readf_int(file, audio.samples.data(), info.frames));
    sf_close(file);
    return audio;
}

Audio noise(int rateHz, int channelCount, int64_t frameCount, uint32_t seed) {
    std::mt19937 random(seed);
    Audio audio{.rateHz = rateHz, .channelCount = channelCount, .samples = {}};
    audio.samples.resize(static_cast<size_t>(frameCount * channelCount));
    for (int32_t& sample : audio.samples) {
        sample = static_cast<int32_t>(random() & 0xffff0000u);  // 16 bits
    }
    return audio;
}

ToolRun::ToolRun(std::vector<std::string> arguments, const std::string& command,
                 const Streams& streams) {
    arguments.insert(arguments.begin(), {STREAMPROXY_TOOL, command});
#ifdef STREAMPROXY_EMULATOR
    arguments.insert(arguments.begin(), STREAMPROXY_EMULATOR);
#endif
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, 1, (mFolder / "out").c_str(), kFlags, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, (mFolder / "err").c_str(), kFlags, 0600);
    if (streams.in >= 0) {
        posix_spawn_file_actions_adddup2(&actions, streams.in, 0);
    }
    if (streams.messages >= 0) {
        posix_spawn_file_actions_adddup2(&actions, streams.messages, 2);
    }
    EXPECT_EQ(0, posix_spawn(&mPid, pointers[0], &actions, nullptr, pointers.data(), environ));
    posix_spawn_file_actions_destroy(&actions);
}

void ToolRun::signal(int number) const {
    EXPECT_EQ(0, kill(mPid, number));
}

ToolRun::Result ToolRun::mixWell(const std::vector<std::string>& arguments) {
    Result result = mix(arguments);
    EXPECT_EQ(0, result.exitCode) << result.messages;
    return result;
}

ToolRun::Result ToolRun::wait() {
    int status = 0;
    EXPECT_EQ(mPid, waitpid(mPid, &status, 0));
    return {.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            .output = contentOf(mFolder / "out"),
            .messages = contentOf(mFolder / "err")};
}

}  // namespace android
