#pragma once

#include <cstdint>
#include <optional>

#include "tools/audio/PipeFormat.h"
#include "tools/process/StandardInput.h"

namespace android {

/**
 * What stands in front of the samples of a WAV or RF64 file (RIFF; EBU Tech 3306), read without
 * going back, so that a pipe can be heard while it is still sent.
 */
struct WavHeader {
    PipeFormat format;
    int64_t headerBytes = 0;  // up to the first sample
    int64_t audioBytes = -1;  // negative: whoever sends it did not know either

    /** Peeks; none where this is no such header, or its samples are of another kind. */
    static std::optional<WavHeader> peek(StandardInput& input);
};

}  // namespace android
