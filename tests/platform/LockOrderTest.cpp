#include <gtest/gtest.h>

#include "sync/PriorityMutex.h"
#include "sync/ThreadLock.h"
#include "utils/Mutex.h"

using namespace android;

namespace {

#ifdef STREAMPROXY_CHECK_LOCK_ORDER

template <typename Lock>
void take(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
    lock.lock();
}

template <typename Lock>
void release(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
    lock.unlock();
}

template <typename First, typename Second>
void takeBoth(First& first, Second& second) {
    take(first);
    take(second);
    release(first);  // not always the last taken first
    release(second);
}

TEST(LockOrderDeathTest, AbortsOnALockTakenAgainstTheOrder) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Mutex global("global");
    ThreadLock worker("worker turn", "worker");
    Mutex commands("command queue");
    Mutex parser("parser");
    PriorityMutex chain("chain");
    Mutex otherChain("chain");
    Mutex config("config");
    Mutex misspelt("confug");
    Mutex anywhere;
    Mutex elsewhere;
    takeBoth(global, worker);
    takeBoth(worker, commands);
    takeBoth(commands, chain);
    takeBoth(chain, config);
    takeBoth(parser, chain);
    takeBoth(config, anywhere);
    takeBoth(elsewhere, global);
    EXPECT_DEATH(takeBoth(worker, global), "\"global\" is taken while \"worker\" is held");
    EXPECT_DEATH(takeBoth(commands, worker), "\"worker turn\" is taken while \"command queue\"");
    EXPECT_DEATH(takeBoth(chain, commands), "\"command queue\" is taken while \"chain\" is held");
    EXPECT_DEATH(takeBoth(config, chain), "\"chain\" is taken while \"config\" is held");
    EXPECT_DEATH(takeBoth(chain, parser), "\"parser\" is taken while \"chain\" is held");
    EXPECT_DEATH(takeBoth(chain, otherChain), "\"chain\" is taken while \"chain\" is held");
    EXPECT_DEATH(take(misspelt), "\"confug\" has no place");
    take(worker);
    worker.assertHeld();
    release(worker);
    EXPECT_DEATH(worker.assertHeld(), "\"worker\" is not held where it must be");
    EXPECT_DEATH(release(config), "released by a thread that does not hold it");
}

#else

TEST(LockOrder, CostsNothingWhereItIsNotChecked) {
    EXPECT_EQ(sizeof(pthread_mutex_t), sizeof(Mutex));
}

#endif

}  // namespace
