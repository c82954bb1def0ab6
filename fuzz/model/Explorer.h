#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

/**
 * Every execution of a small program of two or three threads, under release/acquire visibility: a
 * load may return any store that the thread does not know to be overwritten; an acquire load that
 * returns a release store, or an atomic update of it, learns all its writer knew. Plain memory is
 * checked for races. A lock and a futex guarantee what the real ones do.
 *
 * A thread's body is a function of what it has read. To take its next step it is run from the start
 * again, fed what it read before, and left by an exception where the next step begins. So a state
 * is plain data: it can be copied, and one that was seen before is not explored again.
 *
 * Left out: sequentially consistent order, fences, loads of stores yet to come, and unordered
 * stores of several threads to one location; the first and the last are reported if they occur.
 */
class Explorer {
public:
    static constexpr size_t kMaxThreads = 3;
    static constexpr size_t kMaxLocations = 5;

    enum class Kind {
        kLoad,
        kStore,
        kOr,
        kAnd,
        kLock,
        kUnlock,
        kSleep,
        kWake,
        kRead,
        kWrite,
        kNote
    };
    struct Step {
        Kind kind;
        size_t place = 0;  // location or cell
        uint64_t value = 0;
        std::memory_order order = std::memory_order_relaxed;
    };

    /** The steps that a broken program has made relaxed. */
    struct Relaxed {
        Kind kind;
        size_t place;
    };

    struct Program {
        std::vector<std::function<void()>> threads;
        /** A thread sleeps and nothing else moves: whether it may count on one more time-out.
         *  Throws Fault if it should not sleep at all. */
        std::function<bool(size_t timeOutCount)> mayTimeOut;
        /** Every thread has ended. Throws Fault. */
        std::function<void()> check;
    };
    struct Fault {
        std::string what;
    };
    struct Result {
        std::string fault;  // the first, with the steps that led to it; empty: none
        double executionCount = 0;
        size_t stateCount = 0;
        size_t timeOutCount = 0;  // of those, in how many a sleeper counts on a time-out
    };

    /** `wakeCount`: how often a sleeper may wake without reason, at any moment. */
    Explorer(Relaxed relaxed, size_t wakeCount);
    Explorer() : Explorer({Kind::kNote, 0}, 0) {}

    /** The latest; the model's atomics belong to it. */
    static inline Explorer* sCurrent = nullptr;

    /** While setting up: a new atomic. */
    size_t addLocation(uint64_t value);
    Result explore(const Program& program);

    /** From a thread: takes one step. From mayTimeOut() and check(): looks at the newest values. */
    uint64_t step(const Step& step);
    /** For mayTimeOut() and check(): the thread's notes. */
    const std::vector<uint64_t>& notes(size_t thread) const { return mState->notes[thread]; }

private:
    /** Each thread's position, then each location's newest known store. */
    using View = std::array<uint8_t, kMaxThreads + kMaxLocations>;
    struct Store {
        uint64_t value;
        View view;
    };
    struct Cell {
        uint64_t value = 0;
        View written{};
        View used{};
    };
    enum class Status : uint8_t { kReady, kAsleep, kDone };
    struct Thread {
        Status status = Status::kReady;
        Step next{};
        View view{};
        std::vector<uint64_t> log;  // what its steps returned
    };
    struct State {
        std::vector<Thread> threads;
        std::array<std::vector<uint64_t>, kMaxThreads> notes;
        std::array<std::vector<Store>, kMaxLocations> stores;
        std::array<Cell, 4> cells;
        bool isLocked = false;
        View lockView{};
        std::vector<size_t> sleepers;  // woken in this order
        View futexView{};
        size_t wakeCount = 0;
        size_t timeOutCount = 0;
    };
    struct Key {
        uint64_t a = 0;
        uint64_t b = 0;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        size_t operator()(const Key& key) const { return key.a; }
    };
    struct Trace {
        size_t thread;
        Step step;
        uint64_t result;
    };
    struct Pause {};

    double visit(const State& state);
    double visitAtRest(const State& state);
    double visitWoken(State state, size_t thread);
    size_t firstVisible(const State& state, size_t thread) const;
    void move(State& state, size_t thread, size_t choice);
    void update(State& state, Thread& self, uint64_t value, bool isUpdate);
    uint64_t touch(State& state, size_t thread, const Step& step);
    void resume(State& state, size_t thread, uint64_t result);
    void run(State& state, size_t thread);
    bool has(const Step& step, std::memory_order order) const;
    static Key keyOf(const State& state);
    std::string describe(const std::string& what) const;

    const Relaxed mRelaxed;
    const size_t mWakeCount;
    const Program* mProgram = nullptr;
    size_t mLocationCount = 0;
    State mStart;
    std::unordered_map<Key, double, KeyHash> mKnown;  // the executions that follow from a state
    std::vector<Trace> mPath;
    size_t mTimeOutCount = 0;

    // The thread that runs, or none.
    State* mState = nullptr;
    size_t mThread = kMaxThreads;
    size_t mLogIndex = 0;
};
