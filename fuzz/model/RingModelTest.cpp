// Every interleaving of short programs on the ring and on the writer's sleep.

#include <gtest/gtest.h>

#include <cstdio>

#include "fuzz/model/RingProgram.h"

using android::ConsumeSignal;
using android::RingPositions;

namespace {

using Kind = Explorer::Kind;

// Just before the index wraps, before the counters that statistics() reports do, and before the
// positions themselves do.
constexpr uint64_t kIndexWrap = 1;
constexpr uint64_t kCounterWrap = (uint64_t{1} << 32) - 2;
constexpr uint64_t kPositionWrap = UINT64_MAX - 1;

void expectSound(const char* name, const RingSetting& setting, const Explorer::Result& result,
                 bool waitsForTimeOuts = false) {
    EXPECT_EQ("", result.fault) << name << ", capacity " << setting.capacity;
    EXPECT_GT(result.executionCount, 1000) << name;
    EXPECT_EQ(waitsForTimeOuts, result.timeOutCount > 0) << name;
    printf("  %-28s capacity %zu: %6zu states, %.3g executions, %zu states end by a time-out\n",
           name, setting.capacity, result.stateCount, result.executionCount, result.timeOutCount);
}

void expectFault(const char* fault, const Explorer::Result& result) {
    EXPECT_EQ(0U, result.fault.find(fault)) << "found instead: " << result.fault;
    printf("  %s\n", result.fault.substr(0, result.fault.find('\n')).c_str());
}

TEST(RingModel, EveryFrameComesOnceAndInOrder) {
    for (const RingSetting& setting : {RingSetting{2, kPositionWrap}, RingSetting{3, kCounterWrap},
                                       RingSetting{4, kIndexWrap}}) {
        expectSound("copying", setting, RingProgram(setting).writes(4, 2).reads(4, 2).explore());
        expectSound("copying, with a flush", setting,
                    RingProgram(setting).writes(3, 3).reads(3, 2).flushes().explore());
    }
}

TEST(RingModel, LosesNoWakeUpExceptAFlushs) {
    for (const RingSetting& setting : {RingSetting{2, kPositionWrap}, RingSetting{3, kIndexWrap},
                                       RingSetting{4, kCounterWrap}}) {
        const size_t most = setting.capacity + 2;
        expectSound("write and pull", setting,
                    RingProgram(setting).writesBlocking(most).pulls(3, 1).explore());
        expectSound("write, pull and flush", setting,
                    RingProgram(setting).writesBlocking(most - 1).pulls(2, 1).flushes().explore(),
                    true);
        expectSound("close and read", setting,
                    RingProgram(setting).writesAndCloses(2).reads(3, 1).explore());
        RingSetting woken = setting;
        woken.wakeCount = 1;
        expectSound("write and pull, with a signal", woken,
                    RingProgram(woken).writesBlocking(most - 1).pulls(3, 1).explore());
    }
}

// A fault missed here would be missed in the library too: each one must be found.

// One frame more than there is room for.
struct OverfullRing : RingPositions<ModelAtomic> {
    using RingPositions::RingPositions;
    Spans writeSpans(Snapshot at, size_t frameCount) const {
        at.read = at.read + 1 < at.write ? at.read + 1 : at.read;
        return RingPositions::writeSpans(at, frameCount);
    }
    void commitWrite(size_t frameCount, auto) { advanceWrite(frameCount); }
};

// The last look at the ring comes before the announcement, or not at all.
template <bool Looks>
class DeafSignal {
public:
    template <typename IsNeeded, typename Sleep>
    int wait(IsNeeded isNeeded, Sleep sleep) {
        if (Looks && !isNeeded()) {
            return 0;
        }
        return mSignal.wait([] { return true; }, sleep);
    }
    template <typename Wake>
    int notify(Wake wake) {
        return mSignal.notify(wake);
    }

private:
    ConsumeSignal<ModelAtomic> mSignal;
};

TEST(RingModel, FindsEveryWeakenedOrder) {
    constexpr size_t kRead = 0;  // the atomics, in order of creation
    constexpr size_t kWrite = 1;
    constexpr size_t kWord = 2;
    for (const Kind kind : {Kind::kLoad, Kind::kStore}) {
        for (const size_t place : {kRead, kWrite}) {
            expectFault("a race",
                        RingProgram({2, 0, {kind, place}}).writes(3, 2).reads(2, 2).explore());
        }
    }
    for (const Kind kind : {Kind::kOr, Kind::kAnd}) {
        expectFault("a wake-up is lost",
                    RingProgram({2, 0, {kind, kWord}}).writesBlocking(4).pulls(3, 1).explore());
    }
}

TEST(RingModel, FindsEveryWrongStep) {
    expectFault("a frame is lost",
                RingProgram<OverfullRing>({2, 0}).writesBlocking(4).pulls(2, 1).explore());
    // The index of three does not survive the wrap of the positions: see RingPositions.
    expectFault("a frame is lost",
                RingProgram({3, kPositionWrap}).writes(4, 2).reads(4, 2).explore());
    // A close beside a blocked write: there is one wake-up for the two sleepers.
    expectFault("a wake-up is lost",
                RingProgram({2, 0}).writesBlocking(3).pulls(2, 1).writesAndCloses(0).explore());
    expectFault("two threads store",
                RingProgram({.capacity = 2, .start = 0, .flaw = Flaw::kFlushWithoutLock})
                    .writes(2, 1)
                    .reads(2, 1)
                    .flushes()
                    .explore());
    expectFault("a wake-up is lost",
                RingProgram({.capacity = 2, .start = 0, .flaw = Flaw::kNotifyBeforeAdvance})
                    .writesBlocking(3)
                    .reads(3, 1)
                    .explore());
    expectFault("a wake-up is lost",
                RingProgram<RingPositions<ModelAtomic>, DeafSignal<true>>({2, 0})
                    .writesBlocking(4)
                    .pulls(3, 1)
                    .explore());
    expectFault("a wake-up is lost",
                RingProgram<RingPositions<ModelAtomic>, DeafSignal<false>>({2, 0})
                    .writesBlocking(4)
                    .pulls(3, 1)
                    .explore());
}

}  // namespace
