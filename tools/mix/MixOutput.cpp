#include "tools/mix/MixOutput.h"

namespace android {

bool MixOutput::write(const void* frames, size_t frameCount) {
    mMeter.measure(frames, frameCount);
    // The file first: it has what was mixed also when the device is unplugged.
    if (mFile) {
        mFile->write(frames, frameCount);
    }
    return !mDevice || mDevice->write(frames, frameCount);
}

void MixOutput::finish() {
    if (mFile) {
        mFile->finish();
    }
    if (mDevice) {
        mDevice->drain();
    }
}

void MixOutput::abandon() {
    if (mFile) {
        mFile->abandon();
    }
}

}  // namespace android
