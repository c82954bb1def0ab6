// The default sink, with standard error as hosts have it: read slowly, not at all, or closed.

#include "android/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Eventually.h"

namespace {

const std::string kDropped = "W log: lines dropped because standard error did not take them: ";

void say(const char* text) {
    __android_log_print(ANDROID_LOG_INFO, "test", "%s", text);
}

/** Standard error of this process while it lives: what is written to `out` is read from `in`. */
class StandardError {
public:
    StandardError(int in, int out) : mIn(in), mOut(out), mFormer(dup(STDERR_FILENO)) {
        dup2(out, STDERR_FILENO);
        say("begin");  // with what a former test has dropped
        readUntil("I test: begin\n");
    }
    ~StandardError() {
        dup2(mFormer, STDERR_FILENO);
        close(mFormer);
        close(mOut);
        closeReader();
    }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    std::string readUntil(const std::string& end) const {
        std::string all;
        pollfd ready = {.fd = mIn, .events = POLLIN, .revents = 0};
        while (!all.ends_with(end) && poll(&ready, 1, 10'000) > 0) {
            char bytes[512];
            const ssize_t count = read(mIn, bytes, sizeof(bytes));
            EXPECT_LT(0, count);
            all.append(bytes, static_cast<size_t>(std::max<ssize_t>(count, 0)));
        }
        return all;
    }
    void fill() const {
        const int flags = fcntl(mOut, F_GETFL);
        fcntl(mOut, F_SETFL, flags | O_NONBLOCK);
        const std::string bytes(4096, '-');
        for (const size_t count : {bytes.size(), size_t{1}}) {
            while (write(mOut, bytes.data(), count) > 0) {
            }
        }
        fcntl(mOut, F_SETFL, flags);
    }
    void drain() const {
        char bytes[4096];
        while (unreadByteCount() > 0 && read(mIn, bytes, sizeof(bytes)) > 0) {
        }
    }
    int unreadByteCount() const {
        int count = 0;
        ioctl(mIn, FIONREAD, &count);
        return count;
    }
    int out() const { return mOut; }
    void closeReader() { close(std::exchange(mIn, -1)); }

private:
    int mIn;
    const int mOut;
    const int mFormer;
};

std::unique_ptr<StandardError> makePipe() {
    int ends[2] = {};
    EXPECT_EQ(0, pipe(ends));
    return std::make_unique<StandardError>(ends[0], ends[1]);
}

std::unique_ptr<StandardError> makeSocket() {
    int ends[2] = {};
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    return std::make_unique<StandardError>(ends[0], ends[1]);
}

std::unique_ptr<StandardError> makeTerminal() {
    const int in = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(in);
    unlockpt(in);
    const int out = open(ptsname(in), O_RDWR | O_NOCTTY);
    termios mode = {};
    EXPECT_EQ(0, tcgetattr(out, &mode));
    cfmakeraw(&mode);
    tcsetattr(out, TCSANOW, &mode);
    return std::make_unique<StandardError>(in, out);
}

/** Logs while nothing is taken, and again once it is. */
void expectNoWait(const StandardError& standardError, const std::function<void()>& stop,
                  const std::function<void()>& goOn) {
    stop();
    auto said = std::async(std::launch::async, [] {
        for (const char* text : {"first", "second", "third"}) {
            say(text);
        }
    });
    EXPECT_EQ(std::future_status::ready, said.wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(0, fcntl(standardError.out(), F_GETFL) & O_NONBLOCK) << "the host's own descriptor";
    goOn();
    said.wait();
    say("after");
    EXPECT_EQ(kDropped + "3\nI test: after\n", standardError.readUntil("after\n"));
    say("later");
    EXPECT_EQ("I test: later\n", standardError.readUntil("later\n"));
}

TEST(Log, NeverWaitsForAReaderAndTellsWhatItDropped) {
    for (const auto& make : {makePipe, makeSocket}) {
        const auto standardError = make();
        expectNoWait(
            *standardError, [&] { standardError->fill(); }, [&] { standardError->drain(); });
    }
    {
        SCOPED_TRACE("no descriptor is left to open it anew");
        const auto pipe = makePipe();
        rlimit former = {};
        getrlimit(RLIMIT_NOFILE, &former);
        const rlimit none = {.rlim_cur = 1, .rlim_max = former.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        expectNoWait(
            *pipe, [&] { pipe->fill(); }, [&] { pipe->drain(); });
        setrlimit(RLIMIT_NOFILE, &former);
    }
    const auto terminal = makeTerminal();
    expectNoWait(
        *terminal, [&] { tcflow(terminal->out(), TCOOFF); },
        [&] { tcflow(terminal->out(), TCOON); });
}

TEST(Log, SurvivesAReaderThatHasGone) {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    const auto isPending = [] {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    };
    for (const auto& make : {makePipe, makeSocket}) {
        const auto standardError = make();
        standardError->closeReader();
        errno = ERANGE;
        say("to nobody");
        EXPECT_EQ(ERANGE, errno);
        // A host that takes the signal by itself sees its own and no other.
        sigset_t former;
        pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
        say("to nobody");
        EXPECT_FALSE(isPending());
        raise(SIGPIPE);
        say("to nobody");
        EXPECT_TRUE(isPending());
        int number = 0;
        sigwait(&brokenPipe, &number);
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
    }
}

std::string contentOf(FILE* file) {
    rewind(file);
    std::string content(4096, '\0');
    content.resize(fread(content.data(), 1, content.size(), file));
    fclose(file);
    return content;
}

TEST(Log, FollowsStandardErrorWhereverItLeads) {
    FILE* const file = tmpfile();
    const auto pipe = makePipe();
    say("a");
    dup2(fileno(file), STDERR_FILENO);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "b");
    __android_log_print(99, "c", "%s", std::string(2000, 'c').c_str());
    close(STDERR_FILENO);
    say("to nothing");
    EXPECT_EQ("I test: a\n", pipe->readUntil("a\n"));
    int ends[2] = {};
    EXPECT_EQ(0, ::pipe(ends));
    EXPECT_EQ(STDERR_FILENO, ends[0]);
    say("to the end that is read");
    dup2(pipe->out(), STDERR_FILENO);
    say("d");
    EXPECT_EQ(kDropped + "2\nI test: d\n", pipe->readUntil("d\n"));
    close(ends[1]);
    EXPECT_EQ("E : b\n? c: " + std::string(1023, 'c') + "\n", contentOf(file));
}

TEST(Log, GoesOnInANewLineAfterOneThatWasCut) {
    FILE* const file = tmpfile();
    const auto pipe = makePipe();
    dup2(fileno(file), STDERR_FILENO);
    const auto former = signal(SIGXFSZ, SIG_IGN);
    rlimit large = {};
    getrlimit(RLIMIT_FSIZE, &large);
    const rlimit small = {.rlim_cur = 11, .rlim_max = large.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    say("what a full disk takes");
    say("and what it does not");
    setrlimit(RLIMIT_FSIZE, &large);
    signal(SIGXFSZ, former);
    say("after");
    EXPECT_EQ("I test: wha\n" + kDropped + "2\nI test: after\n", contentOf(file));
}

TEST(Log, AccountsForEveryLineOfManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    const std::string text(200, 'x');
    const auto pipe = makePipe();
    fcntl(pipe->out(), F_SETPIPE_SZ, 4096);
    auto output =
        std::async(std::launch::async, [&pipe] { return pipe->readUntil("I test: end\n"); });
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&text] {
            for (int line = 0; line < kLines; ++line) {
                say(text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(eventually([&pipe] { return pipe->unreadByteCount() == 0; }));
    say("end");
    int count = 0;
    std::istringstream lines(output.get());
    for (std::string line; std::getline(lines, line) && line != "I test: end";) {
        if (line.starts_with(kDropped)) {
            count += std::stoi(line.substr(kDropped.size()));
        } else {
            EXPECT_EQ("I test: " + text, line);
            ++count;
        }
    }
    EXPECT_EQ(kThreads * kLines, count);
}

}  // namespace
