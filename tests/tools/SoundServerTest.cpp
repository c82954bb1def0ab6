#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "tests/support/Eventually.h"
#include "tests/tools/ToolRun.h"

namespace android {
namespace {

/** A program that runs until the object goes. */
class Helper {
public:
    Helper(std::vector<std::string> arguments, const std::string& log) {
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        EXPECT_EQ(0, posix_spawnp(&mPid, pointers[0], &actions, nullptr, pointers.data(), environ));
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Helper() { end(); }
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;
    void signal(int number) const { EXPECT_EQ(0, kill(mPid, number)); }
    void end() {
        if (mPid > 0) {
            kill(mPid, SIGCONT);
            kill(mPid, SIGTERM);
            waitpid(mPid, nullptr, 0);
        }
        mPid = -1;
    }

private:
    pid_t mPid = -1;
};

bool hasPlugin() {
    std::error_code error;
    for (const auto& folder : std::filesystem::directory_iterator("/usr/lib", error)) {
        if (std::filesystem::exists(folder.path() / "alsa-lib/libasound_module_pcm_pulse.so",
                                    error)) {
            return true;
        }
    }
    return std::filesystem::exists("/usr/lib/alsa-lib/libasound_module_pcm_pulse.so", error);
}

bool hasProgram(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

/** A sound server of the test's own with a sink that swallows all, reached through ALSA. */
class SoundServer : public ::testing::Test {
protected:
    void SetUp() override {
        if (!hasProgram("pulseaudio") || !hasProgram("parec") || !hasPlugin()) {
            GTEST_SKIP() << "no sound server to play on; install pulseaudio, pulseaudio-utils and "
                            "libasound2-plugins";
        }
        std::ofstream(folder / "asound.conf")
            // The plug-in tells a program of an underrun only if it is asked to.
            << "pcm.server { type pulse server \"unix:" << socket
            << "\" device swallow handle_underrun 1 }\n"
            << "pcm.absent { type pulse server \"unix:" << (folder / "nobody") << "\" }\n";
        setenv("ALSA_CONFIG_PATH", (folder / "asound.conf").c_str(), 1);
        // Neither server nor clients look for a session, or leave anything in one.
        setenv("HOME", (folder / "home").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder / "home").c_str(), 1);
        setenv("PULSE_SERVER", ("unix:" + socket).c_str(), 1);
        std::filesystem::create_directory(folder / "home");
        std::filesystem::permissions(folder / "home", std::filesystem::perms::owner_all);
        server = std::make_unique<Helper>(
            std::vector<std::string>{
                "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                "--disable-shm=yes", "--log-target=stderr",
                "--load=module-null-sink sink_name=swallow rate=48000 channels=2 format=s16le",
                "--load=module-native-protocol-unix auth-anonymous=1 socket=" + socket},
            folder / "server.log");
        ASSERT_TRUE(eventually([this] { return std::filesystem::exists(socket); }))
            << contentOf("server.log");
        writeAudio(folder / "noise.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, audio);
    }

    /** Begins to record what the sink swallows. */
    void record() {
        recorder.reset();
        std::filesystem::remove(folder / "heard.raw");
        recorder = std::make_unique<Helper>(
            std::vector<std::string>{"parec", "--raw", "--device=swallow.monitor", "--rate=48000",
                                     "--channels=2", "--format=s16le", folder / "heard.raw"},
            folder / "recorder.log");
        ASSERT_TRUE(eventually([this] { return !contentOf("heard.raw").empty(); }))
            << contentOf("recorder.log");
    }
    ToolRun play(const std::string& device) const {
        return ToolRun({folder / "noise.wav", "--device", device}, "play");
    }
    std::string contentOf(const std::string& name) const {
        std::ifstream file(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /** What was recorded without the silence around it, and within: a server that runs out of audio
     *  plays silence, and the noise has no silent frame. */
    std::vector<int32_t> heard() const {
        const std::string bytes = contentOf("heard.raw");
        std::vector<int32_t> samples;
        for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
            int16_t frame[2];
            bytes.copy(reinterpret_cast<char*>(frame), sizeof(frame), at);
            if (frame[0] != 0 || frame[1] != 0) {
                samples.insert(samples.end(), {frame[0] * 65536, frame[1] * 65536});
            }
        }
        return samples;
    }

    const ScratchFolder folder;
    const std::string socket = folder / "native";
    // The recorder gets about two seconds at a time: the first are there while the rest is played.
    const Audio audio = noise(48000, 2, 300000, 1);
    std::unique_ptr<Helper> server;
    std::unique_ptr<Helper> recorder;
};

TEST_F(SoundServer, RecordsWhatIsPlayed) {
    record();
    const auto result = play("server").wait();
    EXPECT_EQ(0, result.exitCode) << result.messages;
    EXPECT_TRUE(result.says("played, ")) << result.messages;
    EXPECT_TRUE(eventually([this] { return heard().size() == audio.samples.size(); }))
        << heard().size();
    EXPECT_EQ(audio.samples, heard());
}

TEST_F(SoundServer, ThatStandsStillCostsNoFrameAndAProgramThatDoesAnUnderrun) {
    for (const bool isServer : {true, false}) {
        ToolRun run = play("server");
        // Each time longer than the device's buffer of 200 ms; some while it plays, whenever it
        // begins.
        for (int i = 0; i < 4; ++i) {
            const auto signal = [&](int number) {
                isServer ? server->signal(number) : run.signal(number);
            };
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            signal(SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            signal(SIGCONT);
        }
        const auto result = run.wait();
        EXPECT_EQ(0, result.exitCode) << result.messages;
        EXPECT_TRUE(result.says("played, ")) << result.messages;
        EXPECT_TRUE(result.says("300000 heard")) << result.messages;
        if (!isServer) {
            // A server counts its own time, and may play on as if it had never stopped.
            EXPECT_FALSE(result.says("played, 0 underruns")) << result.messages;
        }
    }
}

TEST_F(SoundServer, IsMissedInWords) {
    const auto absent = play("absent").wait();
    EXPECT_EQ(1, absent.exitCode);
    EXPECT_TRUE(
        absent.says("sound device 'absent': can't be opened: Connection refused; no sound "
                    "server answers"))
        << absent.messages;

    // One that goes while it is played on.
    record();
    ToolRun run = play("server");
    ASSERT_TRUE(eventually([this] { return heard().size() > 20000; }));
    recorder->end();
    server->end();
    const auto gone = run.wait();
    EXPECT_EQ(1, gone.exitCode) << gone.messages;
    EXPECT_TRUE(gone.says("sound device 'server': playing failed: ")) << gone.messages;
    EXPECT_FALSE(gone.says("ALSA lib")) << gone.messages;
}

}  // namespace
}  // namespace android
