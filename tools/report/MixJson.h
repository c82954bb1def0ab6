#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/mix/MixInput.h"
#include "tools/mix/MixLevels.h"
#include "tools/mix/MixOutput.h"
#include "tools/mix/MixSession.h"
#include "tools/mix/MixTarget.h"

namespace android {

/** The summary of a mix for programs: one JSON object on standard output. */
class MixJson {
public:
    /** Inputs in the session's order. */
    MixJson(const MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
            const MixLevels& levels, const MixTarget& target)
        : mSession(session), mInputs(inputs), mMix(mix), mLevels(levels), mTarget(target) {}

    /** Once the mix is over. Throws ToolError where standard output takes no more. */
    void print(std::chrono::nanoseconds elapsed) const;

private:
    const MixSession& mSession;
    const std::vector<MixInput*>& mInputs;
    MixOutput& mMix;
    const MixLevels& mLevels;
    const MixTarget mTarget;
};

}  // namespace android
