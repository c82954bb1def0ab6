#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/streamproxy/MixInput.h"
#include "tools/streamproxy/MixOutput.h"
#include "tools/streamproxy/MixSession.h"
#include "tools/streamproxy/MixTarget.h"

namespace android {

/** The summary of a mix for programs: one JSON object on standard output. */
class MixJson {
public:
    /** Inputs in the session's order. */
    MixJson(const MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
            const MixTarget& target)
        : mSession(session), mInputs(inputs), mMix(mix), mTarget(target) {}

    /** Once the mix is over. Throws ToolError where standard output takes no more. */
    void print(std::chrono::nanoseconds elapsed) const;

private:
    const MixSession& mSession;
    const std::vector<MixInput*>& mInputs;
    MixOutput& mMix;
    const MixTarget mTarget;
};

}  // namespace android
