#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/streamproxy/AudioWriter.h"
#include "tools/streamproxy/MixInput.h"
#include "tools/streamproxy/MixSession.h"

namespace android {

/**
 * What the person at the terminal sees of a mix, on standard error: progress while it runs, a
 * summary afterwards, warnings about what can't be heard as it should.
 */
class MixReport {
public:
    struct Output {
        std::string path;
        uint32_t rateHz;
        uint32_t bits;
        int64_t preRollFrames;
    };

    MixReport(MixSession& session, const std::vector<MixInput*>& inputs, const Output& output,
              bool isQuiet);

    /** To be called often: a terminal's line is rewritten, elsewhere a line comes now and then. */
    void progress();
    void summary(const AudioWriter::Levels& levels) const;
    void warnings() const;
    /** Makes way for other text on a terminal. */
    void clearLine() const;

private:
    void inputLine(size_t index) const;
    void warnOfWrapping() const;

    MixSession& mSession;
    const std::vector<MixInput*> mInputs;
    const Output mOutput;
    const bool mIsQuiet;
    const bool mIsTerminal;
    double mTotalSec = 0.0;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mNextLine = mStart;
};

}  // namespace android
