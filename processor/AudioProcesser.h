#pragma once

#include <sys/types.h>

#include <cstddef>

#include "buffer/FrameBuffer.h"
#include "utils/RefBase.h"
#include "utils/String8.h"

namespace android {

/**
 * One conversion stage: reads frames from its input buffer, converts them, writes them into its
 * output buffer. Threads: one at a time; the chain's owner serialises.
 */
class AudioProcesser : virtual public RefBase {
public:
    explicit AudioProcesser(const String8& name);
    ~AudioProcesser() override;

    /** Null disconnects. */
    virtual void setInputBuffer(sp<FrameBuffer> buffer);
    virtual void setOutputBuffer(sp<FrameBuffer> buffer);

    /**
     * Produces up to `frameCount` output frames. The frames produced; -ENODEV: the stage is not
     * ready; or another negative status of the output buffer. Errors of the input end the call with
     * the frames done so far.
     */
    virtual ssize_t process(size_t frameCount) = 0;

    /** Discards what waits in the input buffer. */
    void discardInput();

    const String8& name() const { return mName; }

protected:
    /** What process() answers when the output buffer refuses a region. */
    enum class OnRefusal {
        kStatus,      // that status, whatever was done before
        kFramesDone,  // the frames done so far
    };

    /**
     * What every stage's process() is made of: hands regions of the output buffer to
     * `pull(region, frameCount)`, which fills them from the input and returns the frames it wrote,
     * and commits those. Both buffers are set.
     */
    template <typename Pull>
    ssize_t fillOutput(size_t frameCount, OnRefusal onRefusal, Pull pull);

    const String8 mName;
    sp<FrameBuffer> mInputBuffer;
    sp<FrameBuffer> mOutputBuffer;
};

template <typename Pull>
ssize_t AudioProcesser::fillOutput(size_t frameCount, OnRefusal onRefusal, Pull pull) {
    size_t done = 0;
    while (done < frameCount) {
        void* region = nullptr;
        size_t regionFrameCount = frameCount - done;
        const status_t status = mOutputBuffer->obtainWriteBuffer(&region, regionFrameCount);
        if (status != OK) {
            return onRefusal == OnRefusal::kStatus ? status : static_cast<ssize_t>(done);
        }
        const ssize_t produced = regionFrameCount > 0 ? pull(region, regionFrameCount) : 0;
        if (produced < 1) {
            break;
        }
        // A buffer that refuses the commit still holds these frames: the mixer lets every stream
        // add into one region that way.
        done += static_cast<size_t>(produced);
        if (mOutputBuffer->releaseWriteBuffer(region, static_cast<size_t>(produced)) != OK) {
            break;
        }
    }
    return static_cast<ssize_t>(done);
}

}  // namespace android
