#include "tools/mix/MixOutput.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/process/ToolError.h"
#include "tools/text/Decibels.h"

namespace android {

bool MixOutput::write(const void* frames, size_t frameCount) {
    if (mStore) {
        mStore->write(static_cast<const int32_t*>(frames), frameCount);
        return true;
    }
    mMeter.measure(frames, frameCount);
    // The file first: it has what was mixed also when the device is unplugged.
    if (mFile) {
        mFile->write(frames, frameCount);
    }
    return !mDevice || mDevice->write(frames, frameCount);
}

void MixOutput::normalize(std::unique_ptr<MixStore> store, double peakDbfs) {
    mStore = std::move(store);
    mPeakDbfs = peakDbfs;
}

void MixOutput::writeNormalized() {
    const std::unique_ptr<MixStore> store = std::move(mStore);
    mNormalizingDb = store->peak() > 0.0 ? mPeakDbfs - decibelsOf(store->peak()) : 0.0;
    std::vector<int16_t> narrow;
    store->read(std::pow(10.0, mNormalizingDb / 20.0), [&](const int32_t* frames, size_t count) {
        if (mBits == 32) {
            write(frames, count);
            return;
        }
        narrow.resize(count * 2);
        std::transform(frames, frames + count * 2, narrow.begin(), [](int32_t sample) {
            return static_cast<int16_t>(std::clamp((sample + 2048) >> 12, -32768, 32767));
        });
        write(narrow.data(), count);
    });
}

void MixOutput::finish() {
    if (mStore) {
        writeNormalized();
    }
    if (mFile) {
        mFile->finish();
    }
    if (mDevice) {
        mDevice->drain();
    }
}

void MixOutput::abandon() {
    if (mStore) {
        try {
            writeNormalized();
        } catch (const ToolError&) {
            // The run fails for another reason, which is told.
        }
    }
    if (mFile) {
        mFile->abandon();
    }
}

}  // namespace android
