#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <ucontext.h>

#include <atomic>

#if defined(PR_SET_SYSCALL_USER_DISPATCH) && defined(__x86_64__)
#define STREAMPROXY_HAS_SYSCALL_TRAP
#endif

/**
 * Counts the system calls of one thread: the kernel turns a call into a signal while the trap is
 * set. The first call disarms the trap and is then made; so a thread that sets the trap anew before
 * each piece of work counts the pieces that made a call.
 */
class SyscallTrap {
public:
    /** On the thread to be watched; false where the kernel can't. */
    static bool install() {
#ifdef STREAMPROXY_HAS_SYSCALL_TRAP
        struct sigaction action = {};
        action.sa_sigaction = &SyscallTrap::onCall;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSYS, &action, nullptr);
        return prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0UL, 0UL, &sSelector) == 0;
#else
        return false;
#endif
    }
    static void set() {
        sSelector = 1;
    }
    static void release() {
        sSelector = 0;
    }

    static inline std::atomic<int> sCalls{0};
    static inline std::atomic<int> sLastNumber{-1};

private:
#ifdef STREAMPROXY_HAS_SYSCALL_TRAP
    static void onCall(int /*signal*/, siginfo_t* info, void* context) {
        release();
        sLastNumber = info->si_syscall;
        ++sCalls;
        // Back to the instruction, two bytes long, for the call to be made after all.
        static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP] -= 2;
    }
#endif

    static inline volatile char sSelector = 0;  // the kernel reads it with every call
};
