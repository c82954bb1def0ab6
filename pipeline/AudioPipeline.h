#pragma once

#include "pipeline/MixerThread.h"
#include "utils/RefBase.h"

namespace android {

/**
 * The object behind the pipeline handle: owns the mixer thread and forwards to it.
 * Threads: any. Do not drop the last reference on the worker: the destructor waits for it.
 */
class AudioPipeline : public virtual RefBase {
public:
    /** Starts the mixer thread. */
    AudioPipeline();
    /** As stop(); then releases the streams and outputs left. */
    ~AudioPipeline() override;

    /** Stops and joins the worker: no callback comes any more, whoever holds a reference. */
    void stop();
    /** As stop(), but waits `limitNs` at most; false: a callback does not return. */
    [[nodiscard]] bool stopWithin(int64_t limitNs);

    /** As MixerThread's. */
    [[nodiscard]] status_t initCheck();

    /** 1, 2, 3, … in one process. */
    static int getUniqueId();

    /** Each: -EINVAL for null, otherwise the mixer thread's status. */
    [[nodiscard]] int addAudioStream(const sp<AudioStream>& stream);
    int removeAudioStream(const sp<AudioStream>& stream);
    [[nodiscard]] int registerOutput(const sp<AudioOutput>& output);
    int unregisterOutput(const sp<AudioOutput>& output);

    /** "set_audio_delay": offset of every stream's downstream latency, in signed ms. Ignores
     *  everything else, also null. 0; -ENOMEM: the offset is not applied. */
    [[nodiscard]] int setParameters(const char* keyValuePairs);
    int dump(int fd);

private:
    static std::atomic<int> sId;

    sp<MixerThread> mThread;
};

}  // namespace android
