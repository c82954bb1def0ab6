#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/PipeFormat.h"

namespace android {

/** From `timeSec` of the mix on, the input plays at `gain` (linear). */
struct GainChange {
    double timeSec = 0.0;
    float gain = 1.0f;
};

/** One input of the command line: FILE[@key=value,...], or -[@key=value,...] for
 * standard input. */
struct InputSpec {
    std::string path;
    float gain = 1.0f;         // linear, 0.0 to 1.0, on top of `boost`
    float boost = 1.0f;        // what the highest gain has above 1.0, applied to the samples
    float trim = 1.0f;         // linear, on top of every gain; a headroom for all inputs
    float balance = 0.0f;      // -1.0 left only, 1.0 right only
    double startSec = 0.0;     // silence in front
    double fromSec = 0.0;      // what is passed over of the audio, in each repetition
    double lengthSec = -1.0;   // cut after this much, all repetitions counted; negative: never
    int64_t loopCount = 0;     // times to play; 0: as the --loop option says
    bool isDownmixed = false;  // more than two channels become stereo
    std::vector<GainChange> gainChanges;  // by time
    PipeFormat pipeFormat;                // of raw samples
    bool hasPipeFormat = false;           // something of it was named

    /**
     * A file that exists under the whole text is that file; otherwise the settings follow the
     * last '@'. Throws ToolError (usage) naming the setting that it can't read.
     */
    static InputSpec parse(const std::string& text);

    /** Standard input. */
    bool isPipe() const { return path == "-"; }
    /** The gain in force `timeSec` into the mix. */
    float gainAt(double timeSec) const;
    /** The two gains that `gainNow`, the trim and the balance make. */
    float leftGain(float gainNow) const { return gainNow * trim * (balance > 0 ? 1 - balance : 1); }
    float rightGain(float gainNow) const {
        return gainNow * trim * (balance < 0 ? 1 + balance : 1);
    }

private:
    /** The library's gains end at 1.0: what the highest has above goes into `boost`. */
    void splitGains();
};

}  // namespace android
