#include "virtualtime/VirtualMachine.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sync/ConsumeSignal.h"
#include "sync/Futex.h"
#include "sync/Progress.h"
#include "utils/Timers.h"

namespace android {

namespace {

using namespace std::chrono_literals;
using Config = VirtualMachine::Config;
using Order = VirtualMachine::Order;

Config chaos(uint64_t seed, Order order) {
    return {.seed = seed,
            .order = order,
            .maxStepCostNs = 2000,
            .stallRate = 1000,
            .maxStallNs = 5'000'000,
            .maxOversleepNs = 50'000,
            .spuriousRate = 2000,
            .maxStepCount = 10'000'000};
}

/** Two threads hand a counter to each other by a condition, a third sleeps. What happened in order. */
std::string pingPong() {
    std::mutex lock;
    std::condition_variable changed;
    int turn = 0;
    std::string course;
    const auto play = [&](int me) {
        for (int i = 0; i < 5; ++i) {
            std::unique_lock<std::mutex> held(lock);
            changed.wait(held, [&] { return turn % 2 == me; });
            course += static_cast<char>('a' + me);
            ++turn;
            changed.notify_all();
        }
    };
    std::thread first(play, 0);
    std::thread second(play, 1);
    std::thread sleeper([&] {
        std::this_thread::sleep_for(1h);
        const std::lock_guard<std::mutex> held(lock);
        course += '.';
    });
    first.join();
    second.join();
    sleeper.join();
    return course;
}

}  // namespace

TEST(VirtualMachine, TimePassesWhenAllWaitAndCostsNone) {
    const auto begin = std::chrono::steady_clock::now();
    int64_t sleptNs = 0;
    std::string course;
    const VirtualMachine::Summary summary = VirtualMachine::run({}, [&] {
        EXPECT_TRUE(VirtualMachine::isInside());
        const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
        course = pingPong();
        sleptNs = systemTime(SYSTEM_TIME_MONOTONIC) - start;
    });
    EXPECT_FALSE(VirtualMachine::isInside());
    EXPECT_EQ("ababababab.", course);
    EXPECT_GE(sleptNs, 3'600'000'000'000);
    EXPECT_LT(sleptNs, 3'600'001'000'000) << "only the reads of the clock take time";
    EXPECT_GE(summary.elapsedNs, sleptNs);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST(VirtualMachine, ASeedRepeatsItsScheduleAndOtherSeedsDiffer) {
    for (const Order order : {Order::UNTIL_BLOCKED, Order::UNIFORM, Order::PRIORITIES}) {
        std::set<uint64_t> hashes;
        for (uint64_t seed = 1; seed <= 20; ++seed) {
            const auto once = VirtualMachine::run(chaos(seed, order), [] { pingPong(); });
            const auto again = VirtualMachine::run(chaos(seed, order), [] { pingPong(); });
            EXPECT_EQ(once.hash, again.hash);
            EXPECT_EQ(once.stepCount, again.stepCount);
            EXPECT_EQ(once.elapsedNs, again.elapsedNs);
            hashes.insert(once.hash);
        }
        EXPECT_EQ(20U, hashes.size()) << "order " << static_cast<int>(order);
    }
}

// The figure is the same with every compiler, instruction set and sanitizer.
TEST(VirtualMachine, AScheduleIsTheSameEverywhere) {
    const VirtualMachine::Summary summary = VirtualMachine::run(chaos(4711, Order::UNIFORM), [] {
        std::atomic<uint32_t> word{0};
        const auto count = [](void* shared) -> void* {
            auto& counted = *static_cast<std::atomic<uint32_t>*>(shared);
            for (int i = 0; i < 100; ++i) {
                const timespec patience = {.tv_sec = 0, .tv_nsec = 1'000'000};
                Futex::waitWhile(counted, counted, &patience);
                ++counted;
                Futex::wake(counted, 1);
            }
            return nullptr;
        };
        pthread_t threads[4];
        for (pthread_t& thread : threads) {
            pthread_create(&thread, nullptr, count, &word);
        }
        for (const pthread_t thread : threads) {
            pthread_join(thread, nullptr);
        }
        EXPECT_EQ(400U, word);
    });
    EXPECT_EQ(4566536995076810784U, summary.hash);
}

// A counter without a lock: the seeds that let a thread in between its reading and its writing lose
// a count. One that runs until it blocks loses none.
TEST(VirtualMachine, FindsWhatOnlySomeOrdersBreak) {
    const auto lostUpdate = [](const Config& config) {
        std::atomic<int> count{0};
        VirtualMachine::run(config, [&] {
            const auto add = [&] {
                const int before = count;
                systemTime(SYSTEM_TIME_MONOTONIC);
                count = before + 1;
            };
            std::thread other(add);
            add();
            other.join();
        });
        return count != 2;
    };
    EXPECT_FALSE(lostUpdate({}));
    for (const Order order : {Order::UNIFORM, Order::PRIORITIES}) {
        int lost = 0;
        for (uint64_t seed = 0; seed < 100; ++seed) {
            lost += lostUpdate(
                {.seed = seed, .order = order, .changePointCount = 2, .changePointSpan = 12});
        }
        EXPECT_GT(lost, 0);
        EXPECT_LT(lost, 100);
    }
}

TEST(VirtualMachine, WaitsEndInTimeAndForTheRightReason) {
    for (uint64_t seed = 0; seed < 50; ++seed) {
        const bool isCalm = seed == 0;
        VirtualMachine::run(isCalm ? Config{} : chaos(seed, Order::UNIFORM), [&] {
            std::atomic<uint32_t> word{7};
            const timespec second = {.tv_sec = 1, .tv_nsec = 0};
            EXPECT_EQ(EAGAIN, Futex::waitWhile(word, 6, &second));
            const nsecs_t start = systemTime(SYSTEM_TIME_MONOTONIC);
            int error = Futex::waitWhile(word, 7, &second);
            while (error == EINTR) {
                EXPECT_FALSE(isCalm);
                error = Futex::waitWhile(word, 7, &second);
            }
            EXPECT_EQ(ETIMEDOUT, error);
            EXPECT_GE(systemTime(SYSTEM_TIME_MONOTONIC) - start, 1'000'000'000);

            Progress progress;
            std::atomic<bool> isDone{false};
            std::thread worker([&] {
                usleep(300'000);
                isDone = true;
                progress.made();
            });
            EXPECT_FALSE(
                progress.waitWhile([&] { return !isDone; }, Futex::deadlineIn(100'000'000)));
            EXPECT_TRUE(progress.waitWhile([&] { return !isDone; }));
            worker.join();

            std::shared_mutex shared;
            std::timed_mutex timed;
            timed.lock();
            std::vector<std::thread> threads;
            for (int i = 0; i < 3; ++i) {
                threads.emplace_back([&] {
                    const std::shared_lock<std::shared_mutex> held(shared);
                    EXPECT_FALSE(timed.try_lock_for(20ms));
                });
            }
            {
                const std::unique_lock<std::shared_mutex> held(shared);
                std::this_thread::yield();
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            timed.unlock();

            std::mutex lock;
            std::condition_variable never;
            std::unique_lock<std::mutex> held(lock);
            EXPECT_FALSE(never.wait_for(held, 2s, [] { return false; }));
            EXPECT_EQ(std::cv_status::timeout,
                      never.wait_until(held, std::chrono::system_clock::now() - 1s));
        });
    }
}

TEST(VirtualMachine, ThreadsOutsideAndAfterARunHaveTheSystemsTime) {
    std::atomic<bool> isOver{false};
    std::atomic<nsecs_t> outsideNs{0};
    std::thread outside([&] {
        while (!isOver) {
            outsideNs = systemTime(SYSTEM_TIME_MONOTONIC);
        }
    });
    while (outsideNs == 0) {
        std::this_thread::yield();
    }
    nsecs_t insideNs = 0;
    VirtualMachine::run({}, [&] {
        std::this_thread::sleep_for(10'000h);
        insideNs = systemTime(SYSTEM_TIME_MONOTONIC);
    });
    isOver = true;
    outside.join();
    EXPECT_GT(insideNs, 36'000'000'000'000'000);
    EXPECT_LT(outsideNs, 36'000'000'000'000'000) << "of a machine that runs for years";
    EXPECT_GE(systemTime(SYSTEM_TIME_MONOTONIC), outsideNs);
    EXPECT_THROW(VirtualMachine::run({}, [] { throw std::runtime_error("of the body"); }),
                 std::runtime_error);
}

TEST(VirtualMachineDeathTest, SaysWhereEachThreadWaitsWhenNothingCanGoOn) {
#ifdef STREAMPROXY_EMULATOR
    GTEST_SKIP() << "a program under emulation can't start itself";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto deadlock = [] {
        VirtualMachine::run({.repeatCommand = "program --seed 5"}, [] {
            std::mutex first;
            std::mutex second;
            std::thread other([&] {
                pthread_setname_np(pthread_self(), "other");
                const std::lock_guard<std::mutex> held(second);
                usleep(10);
                const std::lock_guard<std::mutex> both(first);
            });
            const std::lock_guard<std::mutex> held(first);
            usleep(10);
            const std::lock_guard<std::mutex> both(second);
            other.join();
        });
    };
    EXPECT_DEATH(deadlock(),
                 "nothing can go on after 0\\.00001[0-9] s(.|\n)*waits for a lock(.|\n)*"
                 "thread 1, other, waits for a lock(.|\n)*repeat: program --seed 5");
    const auto lostWakeUp = [] {
        VirtualMachine::run({}, [] {
            std::atomic<uint32_t> word{0};
            Futex::waitWhile(word, 0, nullptr);
        });
    };
    EXPECT_DEATH(lostWakeUp(), "thread 0, (.|\n)*waits on a futex");
    const auto endless = [] {
        VirtualMachine::run({.maxStepCount = 1000}, [] {
            while (systemTime(SYSTEM_TIME_MONOTONIC) != 0) {
            }
        });
    };
    EXPECT_DEATH(endless(), "too many steps after");
}

}  // namespace android
