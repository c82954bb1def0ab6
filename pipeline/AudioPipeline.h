#pragma once

#include "pipeline/MixerThread.h"
#include "utils/RefBase.h"

namespace android {

/**
 * The object behind the pipeline handle: owns the mixer thread and forwards to it.
 * Threads: any; the mixer thread's locks serialise. The last reference must not go on the worker,
 * which the destructor waits for.
 */
class AudioPipeline : public virtual RefBase {
public:
    /** The mixer thread runs from here on. */
    AudioPipeline();
    /** As stop(); the worker's object then releases the streams and outputs left. */
    ~AudioPipeline() override;

    /** Stops and joins the worker: no callback comes any more, whoever still holds a reference. */
    void stop();
    /** The same for `limitNs` at most; false: a callback does not return. */
    [[nodiscard]] bool stopWithin(int64_t limitNs);

    /** 0; otherwise why nothing can be mixed, see MixerThread. */
    [[nodiscard]] status_t initCheck();

    /** 1, 2, 3, … in one process. */
    static int getUniqueId();

    /** Each: -EINVAL for null, otherwise the mixer thread's answer. */
    [[nodiscard]] int addAudioStream(const sp<AudioStream>& stream);
    int removeAudioStream(const sp<AudioStream>& stream);
    [[nodiscard]] int registerOutput(const sp<AudioOutput>& output);
    int unregisterOutput(const sp<AudioOutput>& output);

    /** "set_audio_delay": offset of every stream's downstream latency, in signed ms. Everything
     * else is ignored, null too. 0; -ENOMEM: the offset is not applied. */
    [[nodiscard]] int setParameters(const char* keyValuePairs);
    int dump(int fd);

private:
    static std::atomic<int> sId;

    sp<MixerThread> mThread;
};

}  // namespace android
