#include "pipeline/AudioPipeline.h"

#include <cerrno>

#include "media/AudioParameter.h"

namespace android {

std::atomic<int> AudioPipeline::sId{1};

AudioPipeline::AudioPipeline() : mThread(new MixerThread()) {}

AudioPipeline::~AudioPipeline() {
    stop();
    mThread.clear();
}

void AudioPipeline::stop() {
    mThread->exit();
}

bool AudioPipeline::stopWithin(int64_t limitNs) {
    return mThread->exitWithin(limitNs);
}

status_t AudioPipeline::initCheck() {
    return mThread->initCheck();
}

int AudioPipeline::getUniqueId() {
    return sId.fetch_add(1, std::memory_order_relaxed);
}

int AudioPipeline::addAudioStream(const sp<AudioStream>& stream) {
    return stream != nullptr ? mThread->addStream(stream) : -EINVAL;
}

int AudioPipeline::removeAudioStream(const sp<AudioStream>& stream) {
    return stream != nullptr ? mThread->removeStream(stream) : -EINVAL;
}

int AudioPipeline::registerOutput(const sp<AudioOutput>& output) {
    return output != nullptr ? mThread->registerOutput(output) : -EINVAL;
}

int AudioPipeline::unregisterOutput(const sp<AudioOutput>& output) {
    return output != nullptr ? mThread->unregisterOutput(output) : -EINVAL;
}

int AudioPipeline::setParameters(const char* keyValuePairs) {
    if (keyValuePairs == nullptr) {
        return OK;
    }
    const AudioParameter parameters{String8(keyValuePairs)};
    int offsetMs = 0;
    if (parameters.getInt(String8("set_audio_delay"), offsetMs) == OK) {
        return mThread->updateLatencyOffset(offsetMs);
    }
    return OK;
}

int AudioPipeline::dump(int fd) {
    return mThread->dump(fd);
}

}  // namespace android
