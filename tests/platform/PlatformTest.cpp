#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "audio_utils/channels.h"
#include "audio_utils/roundup.h"
#include "cutils/properties.h"
#include "media/AudioParameter.h"
#include "system/audio.h"
#include "tests/support/LogCapture.h"
#include "utils/String8.h"
#include "utils/Thread.h"

using namespace android;

namespace {

struct Worker : public Thread {
    explicit Worker(int passes) : mPasses(passes) {}
    bool threadLoop() override { return --mPasses > 0 || mPasses < -1000; }
    std::atomic<int> mPasses;
};

TEST(Thread, RunsItsLoopUntilItEndsOrIsAskedTo) {
    const sp<Worker> worker(new Worker(3));
    EXPECT_EQ(OK, worker->requestExitAndWait()) << "not started yet";
    ASSERT_EQ(OK, worker->run("a name longer than fifteen", 0, 0));
    EXPECT_EQ(INVALID_OPERATION, worker->run("again"));
    while (worker->mPasses > 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(OK, worker->requestExitAndWait());
    EXPECT_EQ(1, worker->getStrongCount()) << "the thread's own reference is gone";
    const sp<Worker> endless(new Worker(-2000));
    ASSERT_EQ(OK, endless->run("endless"));
    std::thread other([&endless] { endless->requestExitAndWait(); });
    EXPECT_EQ(OK, endless->requestExitAndWait());
    other.join();
    EXPECT_NE(OK, endless->run("no such stack", 0, 1)) << "a stack of one byte";
    EXPECT_EQ(1, endless->getStrongCount());
}

TEST(Properties, KeepShortTextsByName) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(0, property_get("test.unset", value, nullptr));
    EXPECT_EQ(3, property_get("test.unset", value, "abc"));
    const std::string longest(91, 'x');
    EXPECT_EQ(0, property_set("test.key", longest.c_str()));
    EXPECT_EQ(91, property_get("test.key", value, "abc"));
    EXPECT_EQ(longest, value);
    EXPECT_EQ(-EINVAL, property_set("test.key", (longest + "x").c_str()));
    EXPECT_EQ(-EINVAL, property_set(nullptr, "v"));
    EXPECT_EQ(0, property_set("test.key", nullptr));
    EXPECT_EQ(91, property_get("test.key", value, std::string(200, 'd').c_str()));
}

/** A file that is gone with the process at the latest. */
class TextFile {
public:
    explicit TextFile(const std::string& text) : mFd(memfd_create("properties", MFD_CLOEXEC)) {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(mFd, text.data(), text.size()));
    }
    ~TextFile() { close(mFd); }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }

private:
    const int mFd;
};

std::string property(const char* key) {
    char value[PROPERTY_VALUE_MAX];
    property_get(key, value, nullptr);
    return value;
}

const std::string kTooLong(92, 'x');
const std::string kPropertyLines =
    "# a comment\r\n\n  #=another\n test.a =\t1 = one \r\nnonsense\n=v\n"
    "test.b=" +
    kTooLong + "\ntest.c=\ntest.d = last";

TEST(Properties, AreLoadedFromAFileButForItsBadLines) {
    const TextFile file(kPropertyLines);
    std::vector<std::string> bad;
    const auto note = [](const property_bad_line* line, void* cookie) {
        static_cast<std::vector<std::string>*>(cookie)->push_back(
            std::to_string(line->number) + " " + line->text + "|" +
            (line->key != nullptr ? line->key + std::string("|") + line->value : ""));
    };
    property_set("test.c", "former");
    EXPECT_EQ(0, property_load(file.path().c_str(), note, &bad));
    EXPECT_EQ("1 = one", property("test.a"));
    EXPECT_EQ("", property("test.c"));
    EXPECT_EQ("last", property("test.d"));
    EXPECT_EQ((std::vector<std::string>{"5 nonsense|", "6 =v|",
                                        "7 test.b=" + kTooLong + "|test.b|" + kTooLong}),
              bad);
    EXPECT_EQ(-EISDIR, property_load("/", note, &bad));
    EXPECT_EQ(-ENOENT, property_load("/none", note, &bad));
}

/** Ends the process, with 0 if that is true. */
[[noreturn]] void endWith(bool isTrue) {
    _exit(isTrue ? 0 : 1);
}

/** In processes of their own, where nobody has asked for a property yet. */
class PropertiesDeathTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef STREAMPROXY_EMULATOR
        GTEST_SKIP() << "a program under emulation can't start itself";
#endif
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

TEST_F(PropertiesDeathTest, AreLoadedFromTheFileThatTheEnvironmentNames) {
    const TextFile file(kPropertyLines);
    EXPECT_EXIT(
        {
            const LogCapture log;
            setenv("STREAMPROXY_PROPERTIES", file.path().c_str(), 1);
            const std::string where = "E properties: load, " + file.path();
            endWith(property("test.a") == "1 = one" && property("test.d") == "last" &&
                    log.messages() ==
                        std::vector{where + ":5 is not key=value: nonsense",
                                    where + ":6 is not key=value: =v",
                                    where + ":7 has too long a value: test.b=" + kTooLong});
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            const LogCapture log;
            setenv("STREAMPROXY_PROPERTIES", "/none", 1);
            endWith(property("test.a").empty() &&
                    log.count("E properties: load, can't read /none: No such file or directory"));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(PropertiesDeathTest, OutliveTheDestructorsOfAProcessThatEnds) {
    static const std::string sLongest(91, 'x');
    EXPECT_EXIT(
        {
            // Called late in exit(): handlers run in reverse.
            atexit([] {
                property_set("test.late", "set");
                endWith(property("test.early") == sLongest && property("test.late") == "set");
            });
            property_set("test.early", sLongest.c_str());
            exit(1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(AudioParameter, ReadsWholeIntegersOnly) {
    const AudioParameter parameters(String8("a=1;b=-20;c=;d=4x;e= 5;f=2147483648;a=7;g"));
    int value = 0;
    EXPECT_EQ(OK, parameters.getInt(String8("a"), value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(OK, parameters.getInt(String8("b"), value));
    for (const char* key : {"c", "d", "e", "f", "g", "", "h"}) {
        EXPECT_EQ(BAD_VALUE, parameters.getInt(String8(key), value)) << key;
    }
    EXPECT_EQ(-20, value);
}

TEST(AudioFormats, CountChannelsAndBytesAndRoundUp) {
    const auto channelCount = audio_channel_count_from_out_mask;
    EXPECT_EQ(22U, channelCount(0x3FFFFFFF));
    EXPECT_EQ(30U, channelCount(0xBFFFFFFF));
    EXPECT_EQ(0U, channelCount(0x40000003) + channelCount(0xC0000003));
    const size_t bytes[] = {0, 2, 1, 4, 4, 4, 3, 0};
    for (uint32_t format = 0; format < 8; ++format) {
        EXPECT_EQ(bytes[format], audio_bytes_per_sample(static_cast<audio_format_t>(format)));
    }
    EXPECT_EQ(2U, audio_bytes_per_sample(AUDIO_FORMAT_IEC61937));
    EXPECT_EQ(1024U, roundup(1000));
    EXPECT_EQ(1024U, roundup(1024));
    EXPECT_EQ(0U, roundup(0) + roundup(0x80000001));
    char byte = 0;
    EXPECT_EQ(0U, adjust_channels(&byte, 1, &byte, 1, 5, 1));
}

}  // namespace
