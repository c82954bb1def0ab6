#pragma once

#include <memory>

#include "tools/audio/AudioInput.h"
#include "tools/audio/InputSpec.h"

namespace android {

/** What is to become of a pipe. */
enum class PipeUse {
    STREAMED,  // heard while it is sent, where its format allows that
    KEPT,      // read to its end first, so that its length is known
};

/**
 * The audio of an input with the settings that shape its samples applied: where it begins, its
 * downmix, a gain above 0 dB. Waits for a pipe's first bytes. Throws ToolError.
 */
std::unique_ptr<AudioInput> openInput(const InputSpec& spec, bool allowTruncated, PipeUse pipeUse);

}  // namespace android
