#include "fuzz/model/Explorer.h"

#include <algorithm>
#include <sstream>

namespace {

template <typename View>
void join(View& view, const View& other) {
    for (size_t i = 0; i < view.size(); ++i) {
        view[i] = std::max(view[i], other[i]);
    }
}

}  // namespace

Explorer::Explorer(Relaxed relaxed, size_t wakeCount) : mRelaxed(relaxed), mWakeCount(wakeCount) {
    sCurrent = this;
}

size_t Explorer::addLocation(uint64_t value) {
    mStart.stores.at(mLocationCount).push_back({value, {}});
    return mLocationCount++;
}

Explorer::Result Explorer::explore(const Program& program) {
    mProgram = &program;
    mKnown.clear();
    mPath.clear();
    mTimeOutCount = 0;
    Result result;
    try {
        State state = mStart;
        state.threads.resize(program.threads.size());
        for (size_t i = 0; i < state.threads.size(); ++i) {
            state.threads[i].view[i] = 1;
            run(state, i);
        }
        result.executionCount = visit(state);
    } catch (const Fault& fault) {
        result.fault = describe(fault.what);
    }
    result.stateCount = mKnown.size();
    result.timeOutCount = mTimeOutCount;
    return result;
}

double Explorer::visit(const State& state) {
    const Key key = keyOf(state);
    const auto [known, isNew] = mKnown.try_emplace(key, 0);
    if (!isNew) {
        return known->second;
    }
    double executionCount = 0;
    bool moved = false;
    for (size_t i = 0; i < state.threads.size(); ++i) {
        const Thread& thread = state.threads[i];
        if (thread.status == Status::kAsleep && state.wakeCount < mWakeCount) {
            State next = state;
            ++next.wakeCount;
            executionCount += visitWoken(std::move(next), i);
        }
        if (thread.status != Status::kReady ||
            (thread.next.kind == Kind::kLock && state.isLocked)) {
            continue;
        }
        moved = true;
        const bool isChoice = thread.next.kind == Kind::kLoad || thread.next.kind == Kind::kSleep;
        const size_t end = isChoice ? state.stores[thread.next.place].size() : 1;
        for (size_t choice = isChoice ? firstVisible(state, i) : 0; choice < end; ++choice) {
            State next = state;
            mPath.push_back({i, thread.next, 0});
            move(next, i, choice);
            executionCount += visit(next);
            mPath.pop_back();
        }
    }
    if (!moved) {
        executionCount += visitAtRest(state);
    }
    mKnown[key] = executionCount;
    return executionCount;
}

double Explorer::visitAtRest(const State& state) {
    State rest = state;
    mState = &rest;
    mThread = kMaxThreads;
    double executionCount = 0;
    bool timedOut = false;
    for (size_t i = 0; i < state.threads.size(); ++i) {
        const Thread& thread = state.threads[i];
        if (thread.status == Status::kReady) {
            throw Fault{"deadlock"};
        }
        if (thread.status == Status::kDone) {
            continue;
        }
        if (state.stores[thread.next.place].back().value != thread.next.value) {
            throw Fault{"a wake-up is lost: asleep on a word that has changed"};
        }
        if (mProgram->mayTimeOut(state.timeOutCount)) {
            timedOut = true;
            ++mTimeOutCount;
            State next = state;
            ++next.timeOutCount;
            // So much later every store has arrived, though what it published need not have.
            for (size_t place = 0; place < mLocationCount; ++place) {
                next.threads[i].view[kMaxThreads + place] =
                    static_cast<uint8_t>(state.stores[place].size() - 1);
            }
            executionCount += visitWoken(std::move(next), i);
            mState = &rest;
            mThread = kMaxThreads;
        }
    }
    if (timedOut) {
        return executionCount;
    }
    mProgram->check();
    return 1;
}

double Explorer::visitWoken(State state, size_t thread) {
    std::erase(state.sleepers, thread);
    mPath.push_back({thread, state.threads[thread].next, 1});
    resume(state, thread, 1);
    const double executionCount = visit(state);
    mPath.pop_back();
    return executionCount;
}

size_t Explorer::firstVisible(const State& state, size_t thread) const {
    const Step& next = state.threads[thread].next;
    const size_t index = kMaxThreads + next.place;
    const uint8_t known = state.threads[thread].view[index];
    return next.kind == Kind::kSleep ? std::max(known, state.futexView[index]) : known;
}

void Explorer::move(State& state, size_t thread, size_t choice) {
    Thread& self = state.threads[thread];
    const Step step = self.next;
    if (step.order == std::memory_order_seq_cst || step.order == std::memory_order_consume) {
        throw Fault{"a memory order that is not modelled"};
    }
    uint64_t result = 0;
    switch (step.kind) {
        case Kind::kSleep: {
            // Two calls on one word are in one order, and the later one sees what the earlier saw.
            join(self.view, state.futexView);
            state.futexView = self.view;
            self.view[kMaxThreads + step.place] = static_cast<uint8_t>(choice);
            if (state.stores[step.place][choice].value == step.value) {
                self.status = Status::kAsleep;
                state.sleepers.push_back(thread);
                return;
            }
            break;
        }
        case Kind::kWake:
            join(self.view, state.futexView);
            state.futexView = self.view;
            if (!state.sleepers.empty()) {
                const size_t woken = state.sleepers.front();
                state.sleepers.erase(state.sleepers.begin());
                resume(state, woken, 0);
                result = 1;
            }
            break;
        case Kind::kLoad: {
            const Store& store = state.stores[step.place][choice];
            self.view[kMaxThreads + step.place] = static_cast<uint8_t>(choice);
            if (has(step, std::memory_order_acquire)) {
                join(self.view, store.view);
            }
            result = store.value;
            break;
        }
        case Kind::kLock:
            state.isLocked = true;
            join(self.view, state.lockView);
            break;
        case Kind::kUnlock:
            state.isLocked = false;
            state.lockView = self.view;
            break;
        default:
            result = state.stores[step.place].back().value;
            update(state, self,
                   step.kind == Kind::kOr    ? result | step.value
                   : step.kind == Kind::kAnd ? result & step.value
                                             : step.value,
                   step.kind != Kind::kStore);
            break;
    }
    mPath.back().result = result;
    resume(state, thread, result);
}

void Explorer::update(State& state, Thread& self, uint64_t value, bool isUpdate) {
    auto& stores = state.stores[self.next.place];
    uint8_t& known = self.view[kMaxThreads + self.next.place];
    const Store& last = stores.back();
    View view{};
    if (isUpdate) {
        // An update reads the newest store, and passes on what that one published.
        if (has(self.next, std::memory_order_acquire)) {
            join(self.view, last.view);
        }
        view = last.view;
    } else if (known + 1U != stores.size()) {
        throw Fault{"two threads store to one location with nothing to order them"};
    }
    known = static_cast<uint8_t>(stores.size());
    if (has(self.next, std::memory_order_release)) {
        join(view, self.view);
    }
    stores.push_back({value, view});
}

// A race is found by what the two threads know of each other, whenever they touch the cell. So plain
// memory needs no steps of its own between those of the atomics.
uint64_t Explorer::touch(State& state, size_t thread, const Step& step) {
    if (step.kind == Kind::kNote) {
        state.notes[thread].push_back(step.value);
        return 0;
    }
    Cell& cell = state.cells.at(step.place);
    const View& view = state.threads[thread].view;
    const bool isWrite = step.kind == Kind::kWrite;
    for (size_t i = 0; i < kMaxThreads; ++i) {
        if ((isWrite ? cell.used : cell.written)[i] > view[i]) {
            throw Fault{"a race for cell " + std::to_string(step.place)};
        }
    }
    cell.used[thread] = view[thread];
    if (isWrite) {
        cell.written[thread] = view[thread];
        cell.value = step.value;
    }
    return cell.value;
}

void Explorer::resume(State& state, size_t thread, uint64_t result) {
    Thread& self = state.threads[thread];
    self.status = Status::kReady;
    self.log.push_back(result);
    // What follows a step is not what the step published.
    if (++self.view[thread] == UINT8_MAX) {
        throw Fault{"a thread takes too many steps"};
    }
    run(state, thread);
}

void Explorer::run(State& state, size_t thread) {
    mState = &state;
    mThread = thread;
    mLogIndex = 0;
    try {
        mProgram->threads[thread]();
        state.threads[thread].status = Status::kDone;
    } catch (const Pause&) {
    }
}

uint64_t Explorer::step(const Step& step) {
    if (mThread == kMaxThreads) {
        return step.kind == Kind::kRead ? mState->cells.at(step.place).value
                                        : mState->stores[step.place].back().value;
    }
    Thread& self = mState->threads[mThread];
    if (mLogIndex == self.log.size()) {
        if (step.kind < Kind::kRead) {
            self.next = step;
            throw Pause{};
        }
        self.log.push_back(touch(*mState, mThread, step));
    }
    return self.log[mLogIndex++];
}

bool Explorer::has(const Step& step, std::memory_order order) const {
    return (step.order == order || step.order == std::memory_order_acq_rel) &&
           (step.kind != mRelaxed.kind || step.place != mRelaxed.place);
}

// What a thread has read stands for where it is and for the values it holds.
Explorer::Key Explorer::keyOf(const State& state) {
    Key key{0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F};
    const auto add = [&key](uint64_t value) {
        key.a = (key.a ^ value) * 0xFF51AFD7ED558CCD;
        key.a ^= key.a >> 32;
        key.b = (key.b + value) * 0xC4CEB9FE1A85EC53;
        key.b ^= key.b >> 29;
    };
    const auto addView = [&add](const View& view) {
        static_assert(sizeof(View) == sizeof(uint64_t));
        uint64_t word = 0;
        for (const uint8_t part : view) {
            word = word << 8 | part;
        }
        add(word);
    };
    for (const Thread& thread : state.threads) {
        add(static_cast<uint64_t>(thread.status) << 32 | thread.log.size());
        addView(thread.view);
        std::for_each(thread.log.begin(), thread.log.end(), add);
    }
    for (const auto& stores : state.stores) {
        add(stores.size());
        for (const Store& store : stores) {
            add(store.value);
            addView(store.view);
        }
    }
    for (const Cell& cell : state.cells) {
        add(cell.value);
        addView(cell.written);
        addView(cell.used);
    }
    add((state.isLocked ? 1 : 0) | state.wakeCount << 8 | state.timeOutCount << 16);
    addView(state.lockView);
    addView(state.futexView);
    std::for_each(state.sleepers.begin(), state.sleepers.end(), add);
    return key;
}

std::string Explorer::describe(const std::string& what) const {
    static constexpr const char* kNames[] = {"load", "store",  "or",    "and",
                                             "lock", "unlock", "sleep", "wake"};
    std::ostringstream text;
    text << what << '\n';
    for (const Trace& trace : mPath) {
        text << "  thread " << trace.thread << ": " << kNames[static_cast<int>(trace.step.kind)]
             << ' ' << trace.step.place << ", " << trace.step.value << " -> " << trace.result
             << '\n';
    }
    return text.str();
}
