#include "virtualtime/VirtualMachine.h"

#include <sched.h>

#include <exception>
#include <memory>

#include "platform/virtualtime/Scheduler.h"

namespace android {

namespace {

/** Keeps the run's threads on one processor: handing a turn to another one costs ten times more. */
class OneProcessor {
public:
    OneProcessor() {
        mIsKept = sched_getaffinity(0, sizeof(mFormer), &mFormer) == 0;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        mIsKept = mIsKept && sched_setaffinity(0, sizeof(one), &one) == 0;
    }
    ~OneProcessor() {
        if (mIsKept) {
            sched_setaffinity(0, sizeof(mFormer), &mFormer);
        }
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t mFormer;
    bool mIsKept;
};

}  // namespace

VirtualMachine::Summary VirtualMachine::run(const Config& config,
                                            const std::function<void()>& body) {
    const OneProcessor oneProcessor;
    const std::unique_ptr<Scheduler> scheduler = std::make_unique<Scheduler>(config);
    std::exception_ptr failure;
    try {
        body();
    } catch (...) {
        failure = std::current_exception();
    }
    scheduler->waitForOthers();
    const Summary summary = scheduler->summary();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return summary;
}

bool VirtualMachine::isInside() {
    return Scheduler::current() != nullptr;
}

VirtualMachine::Summary VirtualMachine::progress() {
    const Scheduler* const scheduler = Scheduler::current();
    return scheduler != nullptr ? scheduler->summary() : Summary{};
}

}  // namespace android
