#include "tests/support/FaultInjection.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>

#include "tests/support/CLibraryAllocator.h"

namespace {

constexpr long kNever = std::numeric_limits<long>::max();

std::atomic<int> gWindows{0};
std::atomic<long> gBefore{kNever};  // allocations that still succeed
std::atomic<bool> gAll{false};
std::atomic<bool> gFailed{false};
std::atomic<long> gLive{0};

[[maybe_unused]] bool failsNow() {
    if (gWindows == 0 || gBefore == kNever) {
        return false;
    }
    const long before = gBefore.fetch_sub(1);
    const bool fails = before == 0 || (before < 0 && gAll);
    gFailed = gFailed || fails;
    return fails;
}

}  // namespace

void FaultInjection::failAllocation(long nth, bool all) {
    gFailed = false;
    gAll = all;
    gBefore = nth - 1;
}

void FaultInjection::failNothing() {
    gBefore = kNever;
}

bool FaultInjection::hasFailed() {
    return gFailed;
}

FaultInjection::Window::Window() {
    ++gWindows;
}

FaultInjection::Window::~Window() {
    --gWindows;
}

long FaultInjection::liveAllocations() {
    return gLive;
}

#if defined(STREAMPROXY_NEW_IS_TAKEN)
// Nothing fails.
#elif defined(STREAMPROXY_SANITIZED)

// Not inlined: the compiler would see malloc() answer for new and warn of the mixture.
[[gnu::noinline]] void* operator new(size_t byteCount, const std::nothrow_t& /*tag*/) noexcept {
    return failsNow() ? nullptr : malloc(byteCount > 0 ? byteCount : 1);
}
[[gnu::noinline]] void* operator new(size_t byteCount) {
    void* const storage = operator new(byteCount, std::nothrow);
    if (storage == nullptr) {
        throw std::bad_alloc();
    }
    return storage;
}
[[gnu::noinline]] void operator delete(void* storage) noexcept {
    free(storage);
}
[[gnu::noinline]] void operator delete(void* storage, size_t /*byteCount*/) noexcept {
    free(storage);
}

#else

namespace {

/** Counts what the C library has made. */
void* made(void* storage) {
    if (storage != nullptr) {
        ++gLive;
    }
    return storage;
}

void* refused() {
    errno = ENOMEM;
    return nullptr;
}

}  // namespace

extern "C" {

void* malloc(size_t byteCount) noexcept {
    return failsNow() ? refused() : made(__libc_malloc(byteCount));
}

void* calloc(size_t count, size_t byteCount) noexcept {
    return failsNow() ? refused() : made(__libc_calloc(count, byteCount));
}

void* realloc(void* storage, size_t byteCount) noexcept {
    if (failsNow()) {
        return refused();
    }
    void* const moved = __libc_realloc(storage, byteCount);
    return storage == nullptr ? made(moved) : moved;
}

void* aligned_alloc(size_t alignment, size_t byteCount) noexcept {
    return failsNow() ? refused() : made(__libc_memalign(alignment, byteCount));
}

void free(void* storage) noexcept {
    gLive -= storage != nullptr ? 1 : 0;
    __libc_free(storage);
}

}  // extern "C"

#endif
