#pragma once

#include <string>

#include "tools/chart/Strip.h"
#include "tools/course/Envelope.h"

namespace android {

/** Waveform and level of an input or of the mix, one strip below the other. */
class AudioStrips {
public:
    AudioStrips(const TimeAxis& axis, const Envelope& audio, const std::string& whose);

    std::string html() const { return mWave.html() + mLevel.html(); }

private:
    Strip mWave;
    Strip mLevel;
};

}  // namespace android
