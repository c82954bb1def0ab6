#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/audio/LevelMeter.h"
#include "tools/mix/MixInput.h"
#include "tools/mix/MixSession.h"

namespace android {

/**
 * Level meters and the fill of every input's buffer, drawn again and again on the same lines of a
 * terminal. Between two drawings the cursor stands in front of the first line, so that a message of
 * the library scrolls the meters down and is not drawn over.
 * Threads: one.
 */
class MeterDisplay {
public:
    /** Whether standard error is a terminal that can move its cursor. */
    static bool isPossible();

    MeterDisplay(const MixSession& session, const std::vector<MixInput*>& inputs,
                 LevelMeter& meter);

    /** To be called often; draws ten times a second. `headline` stands above the meters. */
    void draw(const std::string& headline);
    void clear() const;

private:
    std::string inputLine(size_t index) const;

    const MixSession& mSession;
    const std::vector<MixInput*> mInputs;
    LevelMeter& mMeter;
    std::chrono::steady_clock::time_point mNextDrawing{};
};

}  // namespace android
