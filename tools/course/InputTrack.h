#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "tools/course/Course.h"
#include "tools/course/Envelope.h"
#include "tools/course/Moments.h"

namespace android {

/**
 * What is known of one input of a mix.
 * Threads: handOver() and Write on the feeder's; the rest on the mixer's. Read it when both have
 *          ended.
 */
class InputTrack {
public:
    /** From this time of the mix on, the gain walks to these. */
    struct GainStep {
        double timeSec;
        float left;
        float right;
    };

    /** Stands for the time that a write takes; `track` may be null. */
    class Write {
    public:
        explicit Write(InputTrack* track)
            : mTrack(track), mBeginNs(track != nullptr ? nowNs() : 0) {}
        ~Write() {
            if (mTrack != nullptr) {
                mTrack->noteWrite(mBeginNs);
            }
        }
        Write(const Write&) = delete;
        Write& operator=(const Write&) = delete;

    private:
        InputTrack* const mTrack;
        const int64_t mBeginNs;
    };

    explicit InputTrack(const Envelope::Format& format) : mAudio(format) {}

    /** Frames on their way into the stream, in its own format. */
    void handOver(const void* frames, int64_t frameCount) { mAudio.add(frames, frameCount); }

    void addGain(const GainStep& step) { mGains.push_back(step); }
    void addFill(double timeSec, double fill) { mFill.add(timeSec, fill); }
    void addDelay(double timeSec, int64_t waitNs);
    void setPause(double timeSec);

    Envelope& audio() { return mAudio; }
    const Envelope& audio() const { return mAudio; }
    const Course& fill() const { return mFill; }
    const std::vector<GainStep>& gains() const { return mGains; }
    /** How long the mix stood still because the input had less than a block, in s. */
    const Moments& delays() const { return mDelays; }
    /** Negative: it was not paused. */
    double pauseSec() const { return mPauseSec; }
    /** How long its writes took in all, which is waiting for room. */
    double writeSec() const { return static_cast<double>(mWriteNs) / 1e9; }

    static int64_t nowNs() {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

private:
    void noteWrite(int64_t beginNs);

    Envelope mAudio;
    Course mFill;
    std::vector<GainStep> mGains;
    Moments mDelays;
    double mPauseSec = -1.0;
    int64_t mWriteNs = 0;
};

}  // namespace android
