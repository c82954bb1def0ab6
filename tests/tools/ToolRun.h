#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace android {

/** A folder of a test's own, deleted with the object. */
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::string operator/(const std::string& name) const { return mPath / name; }

private:
    std::filesystem::path mPath;
};

/** Interleaved samples, 32 bits to full scale, whatever the file holds. */
struct Audio {
    int rateHz = 0;
    int channelCount = 0;
    std::vector<int32_t> samples;
    int64_t frameCount() const { return static_cast<int64_t>(samples.size()) / channelCount; }
};

// Of 16 bits.
Audio noise(int rateHz, int channelCount, int64_t frameCount, uint32_t seed);
// `format` is one of libsndfile's.
void writeAudio(const std::string& path, int format, const Audio& audio);
Audio readAudio(const std::string& path);

/** The program as a child process, its output caught. */
class ToolRun {
public:
    struct Result {
        int exitCode;  // 128 + the signal's number where one ended it
        std::string output;
        std::string messages;  // standard error
        bool says(const std::string& text) const { return messages.find(text) != messages.npos; }
    };

    /** Descriptors that the program gets instead of the test's own; -1: none. */
    struct Streams {
        int in = -1;
        int messages = -1;  // then not caught
    };

    // Starts `streamproxy COMMAND` with these arguments.
    explicit ToolRun(const std::vector<std::string>& arguments, const std::string& command = "mix")
        : ToolRun(arguments, command, Streams()) {}
    ToolRun(std::vector<std::string> arguments, const std::string& command, const Streams& streams);
    void signal(int number) const;
    Result wait();

    static Result mix(const std::vector<std::string>& arguments) {
        return ToolRun(arguments).wait();
    }
    static Result hwsync(const std::vector<std::string>& arguments) {
        return ToolRun(arguments, "hwsync").wait();
    }
    // Mixes, and is to succeed.
    static Result mixWell(const std::vector<std::string>& arguments);

private:
    ScratchFolder mFolder;
    pid_t mPid = -1;
};

}  // namespace android
