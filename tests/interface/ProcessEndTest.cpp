// Processes that end, or fork, while audio plays: each in a program of its own.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

namespace {

using std::chrono::steady_clock;

#ifdef STREAMPROXY_SANITIZED_THREADS
constexpr int kSeedCount = 5;  // the sanitizer keeps each process for a second
#else
constexpr int kSeedCount = 20;
#endif

/** The exit status of the host, or 100 and the signal that ended it. */
int endingHost(std::string way, std::string seed = "") {
    std::string program = STREAMPROXY_ENDING_HOST;
    char* arguments[] = {program.data(), way.data(), seed.empty() ? nullptr : seed.data(), nullptr};
    pid_t child = 0;
    EXPECT_EQ(0, posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ));
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST(ProcessEnd, ReturningFromMainWhileWritersWriteEndsCleanly) {
    for (int run = 1; run <= kSeedCount; ++run) {
        const std::string seed = std::to_string(run);
        ASSERT_EQ(0, endingHost("exit", seed)) << "seed " << seed;
        ASSERT_EQ(0, endingHost("recreate", seed)) << "seed " << seed;
    }
}

TEST(ProcessEnd, AHangingCallbackOrAHostThatCleansUpDoesNotDelayIt) {
    for (const char* const way : {"hang", "give-back", "give-back-hanging"}) {
        const auto start = steady_clock::now();
        EXPECT_EQ(0, endingHost(way)) << way;
        // One second for the callback, the host's 300 ms, and a busy machine. If the eight streams
        // waited for the mixer, it would be eight.
        EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(6)) << way;
    }
}

TEST(ProcessEnd, AForkedProcessEndsAndItsCallsAreRefused) {
    for (int run = 1; run <= kSeedCount; ++run) {
        const std::string seed = std::to_string(run);
        ASSERT_EQ(0, endingHost("fork-exit", seed)) << "seed " << seed;
        ASSERT_EQ(0, endingHost("fork-call", seed)) << "seed " << seed;
    }
}

TEST(ProcessEnd, AProcessForkedBeforeThePipelineMayCreateOne) {
#ifdef STREAMPROXY_SANITIZED_THREADS
    GTEST_SKIP() << "the sanitizer ends a forked process that starts a thread";
#endif
    EXPECT_EQ(0, endingHost("fork-first"));
}

}  // namespace
