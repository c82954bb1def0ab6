#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/FrameSource.h"
#include "tools/audio/Handover.h"
#include "tools/audio/InputSpec.h"

namespace android {

/** One input of a mix: what was asked for, its decoder, and how the library gets it. */
struct MixInput {
    MixInput(const InputSpec& inputSpec, std::unique_ptr<AudioInput> openReader,
             const Handover& how, const FrameSource::Extent& extent)
        : spec(inputSpec),
          reader(std::move(openReader)),
          handover(how),
          source(*reader, handover, extent) {}
    MixInput(const MixInput&) = delete;
    MixInput& operator=(const MixInput&) = delete;

    /** Frames of silence in front and audio, if the source knows its length. */
    int64_t promisedFrames() const { return source.silentFrames() + source.audioFrames(); }

    /** How much of the audio lies in the first `writtenFrames` that the stream took. */
    int64_t audioFramesOf(int64_t writtenFrames) const {
        return std::clamp<int64_t>(writtenFrames - source.silentFrames(), 0,
                                   source.audioFramesRead());
    }
    /** The largest sample handed out; 1.0 is full scale. */
    double peak() const {
        const auto& peaks = source.peaks();
        return peaks.empty() ? 0.0 : double{*std::max_element(peaks.begin(), peaks.end())};
    }

    const InputSpec spec;
    const std::unique_ptr<AudioInput> reader;
    const Handover handover;
    FrameSource source;
    audio_proxy_stream_t* stream = nullptr;  // while a session runs
};

}  // namespace android
