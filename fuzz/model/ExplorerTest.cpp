// The explorer itself, on programs whose outcomes are known.

#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "fuzz/model/ModelAtomic.h"

namespace {

using Kind = Explorer::Kind;
using Outcomes = std::set<std::pair<uint64_t, uint64_t>>;
constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr auto kAcquire = std::memory_order_acquire;
constexpr auto kRelease = std::memory_order_release;

class Litmus : public testing::Test {
protected:
    /** What the two loads of the threads return, the first thread's first. */
    Outcomes run(std::function<void()> first, std::function<void()> second) {
        Outcomes outcomes;
        const auto collect = [&] {
            std::vector<uint64_t> seen = explorer.notes(0);
            seen.insert(seen.end(), explorer.notes(1).begin(), explorer.notes(1).end());
            seen.resize(2);
            outcomes.emplace(seen[0], seen[1]);
        };
        result = explorer.explore({{std::move(first), std::move(second)}, {}, collect});
        return outcomes;
    }
    void note(uint64_t value) { explorer.step({Kind::kNote, 0, value}); }
    void publish(std::memory_order order) {
        x.store(1, kRelaxed);
        flag.store(1, order);
    }
    void receive(std::memory_order order) {
        note(flag.load(order));
        note(x.load(kRelaxed));
    }

    Explorer explorer;
    ModelAtomic<uint64_t> x{0};
    ModelAtomic<uint64_t> flag{0};
    Explorer::Result result;
};

TEST_F(Litmus, LoadsReturnWhatTheOrdersAllowAndNothingElse) {
    const Outcomes all = {{0, 0}, {0, 1}, {1, 0}, {1, 1}};
    const Outcomes published = {{0, 0}, {0, 1}, {1, 1}};
    EXPECT_EQ(published, run([&] { publish(kRelease); }, [&] { receive(kAcquire); }));
    EXPECT_EQ(all, run([&] { publish(kRelaxed); }, [&] { receive(kAcquire); }));
    EXPECT_EQ(all, run([&] { publish(kRelease); }, [&] { receive(kRelaxed); }));
    const auto storeThenLoad = [this](ModelAtomic<uint64_t>& mine, ModelAtomic<uint64_t>& other) {
        mine.store(1, kRelease);
        note(other.load(kAcquire));
    };
    EXPECT_EQ(all, run([&] { storeThenLoad(x, flag); }, [&] { storeThenLoad(flag, x); }));

    const auto twice = [this] {
        note(x.load(kRelaxed));
        note(x.load(kRelaxed));
    };
    EXPECT_EQ(published, run([&] { x.store(1, kRelaxed); }, twice))
        << "one location never goes back";
    const auto update = [this] { note(x.fetch_or(1, kRelaxed)); };
    EXPECT_EQ((Outcomes{{0, 1}, {1, 0}}), run(update, update));
}

TEST_F(Litmus, CountsExecutionsAndFindsRaces) {
    run([&] { publish(kRelease); }, [] {});
    EXPECT_EQ(1, result.executionCount);
    run([&] { publish(kRelease); },
        [&] { note(explorer.step({Kind::kLock}) + explorer.step({Kind::kUnlock})); });
    EXPECT_EQ(6, result.executionCount) << "two steps among two";

    const auto readIfSet = [this] {
        if (flag.load(kAcquire) == 1) {
            explorer.step({Kind::kRead, 0});
        }
    };
    const auto write = [this] { explorer.step({Kind::kWrite, 0, 7}); };
    run(
        [&] {
            write();
            flag.store(1, kRelease);
        },
        readIfSet);
    EXPECT_EQ("", result.fault);
    run(
        [&] {
            flag.store(1, kRelease);
            write();
        },
        readIfSet);
    EXPECT_EQ(0U, result.fault.find("a race for cell 0"));
    run([&] { x.store(1, kRelease); }, [&] { x.store(2, kRelease); });
    EXPECT_EQ(0U, result.fault.find("two threads store"));
    run([&] { x.load(std::memory_order_seq_cst); }, [] {});
    EXPECT_EQ(0U, result.fault.find("a memory order"));
}

}  // namespace
