#include "sync/Futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "utils/Timers.h"

namespace android {

namespace {

long futex(std::atomic<uint32_t>& word, int operation, uint32_t value, const timespec* timeout) {
    static_assert(sizeof(word) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);
    return syscall(SYS_futex, &word, operation, value, timeout, nullptr, 0);
}

}  // namespace

int Futex::waitWhile(std::atomic<uint32_t>& word, uint32_t value, const timespec* timeout) {
    return futex(word, FUTEX_WAIT, value, timeout) == 0 ? 0 : errno;
}

bool Futex::waitUntil(std::atomic<uint32_t>& word, uint32_t value, int64_t deadlineNs) {
    if (deadlineNs == kNoDeadline) {
        waitWhile(word, value, nullptr);
        return true;
    }
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const int64_t leftNs = deadlineNs - systemTime(SYSTEM_TIME_MONOTONIC);
    if (leftNs <= 0) {
        return false;
    }
    const timespec left = {.tv_sec = leftNs / kNsPerSecond, .tv_nsec = leftNs % kNsPerSecond};
    waitWhile(word, value, &left);
    return true;
}

int64_t Futex::deadlineIn(int64_t durationNs) {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    return durationNs > kNoDeadline - now ? kNoDeadline : now + durationNs;
}

int Futex::wake(std::atomic<uint32_t>& word, int sleeperCount) {
    return futex(word, FUTEX_WAKE, static_cast<uint32_t>(sleeperCount), nullptr) < 0 ? errno : 0;
}

}  // namespace android
