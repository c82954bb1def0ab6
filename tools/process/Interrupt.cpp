#include "tools/process/Interrupt.h"

#include <atomic>
#include <csignal>

#include "tools/process/RealClock.h"

namespace android {

namespace {

std::atomic<int> sSignal{0};
std::atomic<int64_t> sFirstNs{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<int64_t>::is_always_lock_free,
              "written by a signal handler");

void onSignal(int number) {
    constexpr int64_t kTwiceNs = 1'500'000'000;
    const int64_t now = RealClock::nowNs();
    // Some programs send their signal twice at once; a person takes longer to lose patience.
    if (sSignal.load() != 0 && now > sFirstNs.load() + kTwiceNs) {
        signal(number, SIG_DFL);
        raise(number);
    }
    if (sSignal.load() == 0) {
        sFirstNs.store(now);
        sSignal.store(number);
    }
}

}  // namespace

void Interrupt::install() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int Interrupt::signalNumber() {
    return sSignal.load();
}

}  // namespace android
