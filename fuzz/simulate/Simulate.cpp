// Runs random hosts of the library in virtual time, each from a seed, in two processes. Reports every
// seed that shows a fault, with the command that repeats it.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "fuzz/simulate/Host.h"
#include "fuzz/simulate/Run.h"
#include "virtualtime/VirtualMachine.h"

using android::VirtualMachine;
using run::Random;

namespace {

constexpr size_t kWorkers = 2;
constexpr uint64_t kTwiceEvery = 100;  // seeds, for their schedules to be compared
constexpr unsigned kPatience = 300;    // real seconds for a seed: it spins, and no clock goes on

/** What a worker process tells its parent. */
struct Progress {
    std::atomic<uint64_t> seed{0};  // in progress
    std::atomic<uint64_t> doneCount{0};
    std::atomic<uint64_t> stepCount{0};
    std::atomic<uint64_t> virtualMs{0};
};

struct Seeds {
    uint64_t from;
    uint64_t count;
};

VirtualMachine::Config configOf(uint64_t seed) {
    using Order = VirtualMachine::Order;
    static constexpr Order kOrders[] = {Order::UNIFORM, Order::PRIORITIES, Order::UNTIL_BLOCKED};
    Random random(seed);
    VirtualMachine::Config config;
    config.seed = random.next();
    config.order = kOrders[random.below(3)];
    config.changePointCount = static_cast<uint32_t>(random.below(6));
    config.changePointSpan = 1000 + random.below(50'000);
    config.maxStepCostNs = static_cast<int64_t>(random.below(2) * random.below(5000));
    config.stallRate = static_cast<uint32_t>(random.below(3) == 0 ? random.below(500) : 0);
    config.maxStallNs = static_cast<int64_t>(1'000'000 + random.below(50'000'000));
    config.maxOversleepNs = static_cast<int64_t>(random.below(2) * random.below(100'000));
    config.spuriousRate = static_cast<uint32_t>(random.below(2) * random.below(5000));
    config.maxStepCount = 20'000'000;
    config.repeatCommand = run::repeatCommand();
    return config;
}

HostEnd endOf(uint64_t seed) {
    switch (seed % 16) {
        case 5:
            return HostEnd::EXIT;
        case 10:
            return HostEnd::FORK;
        case 15:
            return HostEnd::UNLOAD;
        default:
            return HostEnd::DESTROY;
    }
}

VirtualMachine::Summary runSeed(uint64_t seed) {
    run::begin(seed);
    return VirtualMachine::run(configOf(seed), [seed] { runHost(seed, endOf(seed)); });
}

/** In a process of its own, for it ends, or the library does. */
void runInChild(uint64_t seed) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kPatience);
        runSeed(seed);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        fprintf(stderr, "simulate: seed %" PRIu64 ": its process ended with status 0x%x\n", seed,
                static_cast<unsigned>(status));
        _exit(run::kFaultStatus);
    }
}

[[noreturn]] void work(const Seeds& seeds, uint64_t first, size_t stride, Progress& progress) {
    for (uint64_t i = first; i < seeds.count; i += stride) {
        const uint64_t seed = seeds.from + i;
        progress.seed = seed;
        alarm(kPatience);
        if (endOf(seed) != HostEnd::DESTROY) {
            runInChild(seed);
        } else {
            const auto summary = runSeed(seed);
            if (seed % kTwiceEvery == 0 && runSeed(seed).hash != summary.hash) {
                run::fault("a second run took another course");
            }
            progress.stepCount += summary.stepCount;
            progress.virtualMs += static_cast<uint64_t>(summary.elapsedNs / 1'000'000);
        }
        ++progress.doneCount;
    }
    _exit(0);
}

/** The worker processes, from the first seed to the last, whatever befalls one. */
class Workers {
public:
    explicit Workers(const Seeds& seeds) : mSeeds(seeds) {
        void* const shared = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) {
            perror("simulate");
            exit(1);
        }
        mShared = new (shared) Shared();
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /** The seeds that failed. */
    std::vector<uint64_t> run() {
        for (size_t i = 0; i < kWorkers; ++i) {
            start(i, i);
        }
        while (isAnyAlive()) {
            int status = 0;
            const pid_t ended = waitpid(-1, &status, WNOHANG);
            if (ended > 0) {
                finish(ended, status);
                continue;
            }
            usleep(100'000);
            if (isatty(STDOUT_FILENO) != 0) {
                showProgress();
            }
        }
        showProgress();
        return mFailed;
    }

private:
    using Shared = std::array<Progress, kWorkers>;

    bool isAnyAlive() const {
        for (const pid_t process : mProcesses) {
            if (process != 0) {
                return true;
            }
        }
        return false;
    }

    void start(size_t worker, uint64_t first) {
        fflush(stdout);
        mProcesses[worker] = fork();
        if (mProcesses[worker] == 0) {
            work(mSeeds, first, kWorkers, (*mShared)[worker]);
        }
        if (mProcesses[worker] < 0) {
            perror("simulate");
            exit(1);
        }
    }

    void finish(pid_t process, int status) {
        for (size_t i = 0; i < kWorkers; ++i) {
            if (mProcesses[i] != process) {
                continue;
            }
            mProcesses[i] = 0;
            if (status != 0) {
                const uint64_t seed = (*mShared)[i].seed;
                fprintf(stderr, "simulate: seed %" PRIu64 " failed (status 0x%x)\n", seed,
                        static_cast<unsigned>(status));
                mFailed.push_back(seed);
                start(i, seed - mSeeds.from + kWorkers);
            }
        }
    }

    void showProgress() const {
        uint64_t doneCount = 0;
        uint64_t stepCount = 0;
        uint64_t virtualMs = 0;
        for (const Progress& progress : *mShared) {
            doneCount += progress.doneCount;
            stepCount += progress.stepCount;
            virtualMs += progress.virtualMs;
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
        printf("\r%" PRIu64
               " seeds, %.1f M steps, %.2f virtual hours in %.0f s: %.0f seeds/s, %zu failed",
               doneCount + mFailed.size(), static_cast<double>(stepCount) / 1e6,
               static_cast<double>(virtualMs) / 3.6e6, seconds,
               static_cast<double>(doneCount) / seconds, mFailed.size());
        fflush(stdout);
    }

    const Seeds mSeeds;
    Shared* mShared;
    std::array<pid_t, kWorkers> mProcesses = {};
    std::vector<uint64_t> mFailed;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

bool parse(const char* text, uint64_t& number) {
    char* end = nullptr;
    errno = 0;
    number = strtoull(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == '\0' && errno == 0;
}

}  // namespace

int main(int argc, char** argv) {
    Seeds seeds = {.from = 1, .count = 10'000};
    if (argc > 3 || (argc > 1 && !parse(argv[1], seeds.count)) ||
        (argc > 2 && !parse(argv[2], seeds.from))) {
        fprintf(stderr, "usage: %s [SEEDS [FROM]]\n", argv[0]);
        return 2;
    }
    const std::vector<uint64_t> failed = Workers(seeds).run();
    printf("\n");
    for (const uint64_t seed : failed) {
        printf("failed: ./dev simulate 1 %" PRIu64 "\n", seed);
    }
    return failed.empty() ? 0 : 1;
}
