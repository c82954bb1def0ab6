#pragma once

#include "sync/PriorityMutex.h"
#include "sync/TurnstileLock.h"

namespace android {

/** The worker's: between two cycles it releases the lock only to take it at once. */
using ThreadLock = TurnstileLock<PriorityMutex>;

}  // namespace android
