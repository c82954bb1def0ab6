#include "tools/process/Interrupt.h"

#include <atomic>
#include <csignal>
#include <ctime>

namespace android {

namespace {

std::atomic<int> sSignal{0};
std::atomic<time_t> sFirstSec{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<time_t>::is_always_lock_free,
              "written by a signal handler");

void onSignal(int number) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    // Some programs send their signal twice at once; a person takes longer to lose patience.
    if (sSignal.load() != 0 && now.tv_sec > sFirstSec.load() + 1) {
        signal(number, SIG_DFL);
        raise(number);
    }
    if (sSignal.load() == 0) {
        sFirstSec.store(now.tv_sec);
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
