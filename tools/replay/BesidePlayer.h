#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tools/audio/AudioInput.h"
#include "tools/audio/FrameSource.h"
#include "tools/audio/Handover.h"
#include "tools/audio/InputSpec.h"
#include "tools/host/Library.h"
#include "tools/replay/ReplayRecorder.h"

namespace android {

/**
 * Plays an audio file through a plain stream of the same mix, fed by a thread of its own; when the
 * file is over, silence, since an open stream without frames would hold up all others.
 * Threads: one (the owner); the feeding thread works inside.
 */
class BesidePlayer {
public:
    /** Throws ToolError when the file can't be heard as it is. */
    BesidePlayer(const InputSpec& spec, uint32_t mixRateHz);
    ~BesidePlayer();  // stops
    BesidePlayer(const BesidePlayer&) = delete;
    BesidePlayer& operator=(const BesidePlayer&) = delete;

    /** Makes the stream; the mix has its configuration. `recorder` may be null. Throws ToolError. */
    void create(const Library& library, ReplayRecorder* recorder);
    void start();
    /** Ends within one write, also when nothing is mixed any more, and destroys the stream. */
    void stop();

    const std::string& path() const { return mSpec.path; }

private:
    void run();
    /** A write's worth of audio, or of silence. */
    size_t next();
    void applyGains(int64_t writtenFrames);
    void setGain(float gain, double timeSec);

    const InputSpec mSpec;
    const std::unique_ptr<AudioInput> mReader;
    const Handover mHandover;
    FrameSource mSource;
    const Library* mLibrary = nullptr;
    audio_proxy_stream_t* mStream = nullptr;
    ReplayRecorder* mRecorder = nullptr;  // for the report, with its track
    InputTrack* mTrack = nullptr;
    size_t mNextGainChange = 0;
    bool mHasAudio = true;
    std::vector<uint8_t> mChunk;
    std::atomic<bool> mIsStopped{false};
    std::thread mThread;
};

}  // namespace android
