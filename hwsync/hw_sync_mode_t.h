#pragma once

#include <cstdint>

/** The mode that a burst's header selects. */
enum hw_sync_mode_t : int32_t {
    HW_SYNC_MODE_INVALID = -1,  // an unknown magic; never stored
    HW_SYNC_MODE_AV_SYNC = 0,   // keep the audio in step with the AV-sync clock
    HW_SYNC_MODE_FREE_RUN = 1,  // play as it comes
};
