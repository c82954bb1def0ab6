#pragma once

#include <atomic>

#include "processor/AudioDump.h"
#include "processor/AudioProcesser.h"
#include "processor/RequestedGains.h"
#include "processor/VolumeKernels.h"
#include "system/audio.h"
#include "utils/Mutex.h"

namespace android {

enum volumer_type_t : int32_t {
    VOLUMER_TYPE_MIX = 0,      // adds the gained samples into the destination
    VOLUMER_TYPE_PROCESS = 1,  // overwrites the destination with them
};

/**
 * Applies a left and a right gain to stereo PCM and converts between 16-bit samples (Q0.15) and
 * 32-bit samples (Q4.27) in the same pass. A new gain is reached by a linear ramp.
 *
 * Fixed point: a gain is U4.12 (unity 4096), on a ramp U4.28 (unity 1 << 28). A 32-bit sample is
 * cut to Q4.15 before the product. Sums and products wrap around; only a 16-bit gained sample is
 * saturated.
 * Threads: setVolume() and getVolume() any; everything else one at a time, the owning stream's lock
 * provides that.
 */
class VolumeMixer : public AudioProcesser {
public:
    /** `rampFrameCount` 0 makes every change immediate. Never fails: a type or format that is not
     *  supported is logged, and the stage then passes time but writes nothing. */
    VolumeMixer(audio_format_t srcFormat, unsigned int srcChannelMask, audio_format_t dstFormat,
                unsigned int dstChannelMask, int rampFrameCount, volumer_type_t type);

    /** Both formats are 16-bit or 32-bit PCM. */
    static bool isFormatSupported(audio_format_t src, audio_format_t dst);
    /** The mask is stereo. */
    static bool isChannelSupported(unsigned int mask);

    ssize_t process(size_t frameCount) override;

    /** Gains from 0.0 to 1.0; takes effect with the next frames processed. -EINVAL: the left gain
     *  is outside, nothing changes. The right gain is held to the range; NaN is silence. */
    virtual status_t setVolume(float left, float right);
    virtual void getVolume(float& left, float& right);
    /** Without ramps a change applies at once; a prepared ramp waits. */
    virtual void ramp(bool enable);
    /** In place, for the overwriting type alone. The frames processed; -ENOSYS: the other type. */
    virtual ssize_t process(void* buffer, size_t frameCount);

    /** `frameCount`, or -EINVAL for no frames or a null pointer. */
    ssize_t mix(void* out, size_t frameCount, void* in);
    /** Pulls up to `frameCount` frames from `in`. The frames written, or a negative status. */
    ssize_t mix(void* out, size_t frameCount, const sp<FrameBuffer>& in);

    /** Turns changed gains into targets and ramp increments. */
    void setVolumeRampVariables();
    bool shouldRamp() const;
    /** Ends each channel's ramp that has reached its target. Run once after every ramped pass. */
    static void adjustVolumeRamp(int* prevVolume, int* volumeInc, short* volume);

    /**
     * The kernel family. MixType 0 adds, 2 overwrites. `out` and `in` are interleaved samples of TO
     * and TI; `prevVolume` and `volumeInc` are U4.28, `volume` U4.12, one each per channel.
     */
    template <int MixType, int ChannelCount, typename TO, typename TI, typename TV,
              InstructionSet Set = InstructionSet::kBaseline>
    static void volumeMix(void* out, size_t frameCount, const void* in, bool ramp, TV* prevVolume,
                          TV* volumeInc, short* volume);

private:
    template <InstructionSet Set>
    static const VolumeOp kVolumeOps[2][2][2];

    static VolumeOp volumeOp(audio_format_t src, audio_format_t dst, volumer_type_t type);

    // For whoever looks at a stage in a debugger; the kernel and the sizes follow from them.
    [[maybe_unused]] const audio_format_t mSrcFormat;
    [[maybe_unused]] const uint32_t mSrcChannelMask;
    const size_t mSrcFrameSize;                // bytes
    const size_t mDstFrameSize;                // bytes
    RequestedGains mVolume{{1.0F, 1.0F}};      // any thread sets them
    short mIntVolume[2] = {1 << 12, 1 << 12};  // U4.12, the targets
    int mPrevVolume[2] = {1 << 28, 1 << 28};   // U4.28, where each ramp stands
    int mVolumeInc[2] = {0, 0};                // U4.28 a frame; 0: no ramp
    const int mRampFrames;
    std::atomic<bool> mRampEnabled{true};  // any thread sets it; orders nothing
    const volumer_type_t mType;
    const sp<AudioDump> mDump;
    const VolumeOp mVolumeOp;  // null: nothing is written
};

}  // namespace android
