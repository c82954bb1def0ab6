#include "processor/AudioProcesser.h"

#include <utility>

namespace android {

AudioProcesser::AudioProcesser(const String8& name) : mName(name) {}

AudioProcesser::~AudioProcesser() = default;

void AudioProcesser::setInputBuffer(sp<FrameBuffer> buffer) {
    mInputBuffer = std::move(buffer);
}

void AudioProcesser::setOutputBuffer(sp<FrameBuffer> buffer) {
    mOutputBuffer = std::move(buffer);
}

void AudioProcesser::discardInput() {
    if (mInputBuffer != nullptr) {
        mInputBuffer->flush();
    }
}

}  // namespace android
