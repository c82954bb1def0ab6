#pragma once

#include <cstdint>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/Handover.h"

namespace android {

/**
 * The frames of one input in the form that it is handed over: leading silence, then the audio as
 * often as it is to be played.
 * Threads: one at a time (the input's feeder).
 */
class FrameSource {
public:
    struct Extent {
        int64_t silentFrames = 0;  // in front
        int64_t loopCount = 1;
        int64_t maxFrames = -1;  // of audio, all repetitions; negative: all
    };

    FrameSource(AudioInput& reader, const Handover& handover, const Extent& extent);

    /** Fills `out` with up to `frameCount` frames; 0 at the end. Throws what the reader throws. */
    size_t next(void* out, size_t frameCount);

    /** Whether a read may wait for whoever sends the audio, which a file never does. */
    bool mayWait() const { return mReader.frameCount() < 0; }
    int64_t silentFrames() const { return mExtent.silentFrames; }
    /** Whether anything says how long the audio is. */
    bool hasKnownLength() const { return mAudioFrames < INT64_MAX; }
    /** Frames of audio as promised; exact unless the input turns out shorter. */
    int64_t audioFrames() const { return mAudioFrames; }
    /** Frames of audio handed out so far. */
    int64_t audioFramesRead() const { return mAudioFramesRead; }
    /** Samples of them that lay beyond full scale and were held to it on the way to 16 bits. */
    int64_t clippedCount() const { return mClippedCount; }
    /** The largest sample in each 20 ms, from the first frame of silence on; 1.0 is full scale. */
    const std::vector<float>& peaks() const { return mPeaks; }
    static constexpr int kPeaksPerSecond = 50;

private:
    template <typename Sample>
    size_t next(Sample* out, std::vector<Sample>& decoded, size_t frameCount, float fullScale);
    template <typename Sample>
    size_t decode(Sample* out, size_t frameCount);
    size_t read(int16_t* out, size_t frameCount);
    size_t read(int32_t* out, size_t frameCount);
    template <typename Sample>
    void arrange(const Sample* decoded, Sample* out, size_t frameCount) const;
    template <typename Sample>
    void measure(const Sample* samples, size_t frameCount, float fullScale);

    AudioInput& mReader;
    const Handover& mHandover;
    const Extent mExtent;
    int64_t mAudioFrames;
    int64_t mSilentFramesLeft;
    int64_t mLoopsLeft;
    int64_t mAudioFramesRead = 0;
    int64_t mFramesThisTime = 0;  // since the file last began
    int64_t mClippedCount = 0;
    std::vector<float> mPeaks;
    std::vector<int16_t> mDecoded16;
    std::vector<int32_t> mDecodedQ27;
};

}  // namespace android
