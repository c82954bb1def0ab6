// What the library's own files are compiled with, the files of a project around it must be as well.

#include <type_traits>

#include "processor/InstructionSet.h"
#include "utils/Mutex.h"

static_assert(!std::is_empty_v<android::LockPlace> &&
                  sizeof(android::Mutex) > sizeof(pthread_mutex_t),
              "a lock has its place in the lock order");

#ifndef STREAMPROXY_BASELINE_ONLY
#error "inline functions choose other kernels than the library"
#endif

#if defined(__has_feature)
#if !__has_feature(thread_sanitizer)
#error "the sanitizer does not see this file"
#endif
#elif !defined(__SANITIZE_THREAD__)
#error "the sanitizer does not see this file"
#endif
