#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/mix/MixInput.h"
#include "tools/mix/MixLevels.h"
#include "tools/mix/MixOutput.h"
#include "tools/mix/MixSession.h"
#include "tools/mix/MixTarget.h"
#include "tools/report/MeterDisplay.h"

namespace android {

/**
 * What the person at the terminal sees of a mix, on standard error: progress while it runs, a
 * summary afterwards, warnings about what can't be heard as it should.
 */
class MixReport {
public:
    MixReport(MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
              const MixLevels& levels, const MixTarget& target, bool isQuiet, bool isJson);

    /**
     * To be called often. A mix that is played has meters on a terminal; otherwise a terminal's
     * line is rewritten, and elsewhere a line comes now and then.
     */
    void progress();
    void summary() const;
    void warnings() const;
    /** Makes way for other text on a terminal. */
    void clearLine() const;

private:
    bool isPlayed() const { return !mTarget.device.empty(); }
    std::string progressLine() const;
    void inputLine(size_t index) const;
    void outputLines() const;
    void warnOfOverload() const;
    void warnOfShortBlocks() const;
    void warnOfShortWrites() const;

    MixSession& mSession;
    const std::vector<MixInput*> mInputs;
    MixOutput& mMix;
    const MixLevels& mLevels;
    const MixTarget mTarget;
    const bool mIsQuiet;
    const bool mIsJson;  // the summary is for programs, on standard output
    const bool mIsTerminal;
    double mTotalSec = 0.0;  // infinite: nobody knows
    std::optional<MeterDisplay> mMeters;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mNextLine = mStart;
};

}  // namespace android
