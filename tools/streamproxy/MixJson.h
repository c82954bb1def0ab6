#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/streamproxy/MixInput.h"
#include "tools/streamproxy/MixOutput.h"
#include "tools/streamproxy/MixSession.h"

namespace android {

/** The summary of a mix for programs: one JSON object on standard output. */
class MixJson {
public:
    struct Output {
        std::string path;    // empty: no file
        std::string device;  // empty: not played
        uint32_t rateHz;
        uint32_t bits;
    };

    /** Inputs in the session's order. */
    MixJson(const MixSession& session, const std::vector<MixInput*>& inputs, MixOutput& mix,
            const Output& output)
        : mSession(session), mInputs(inputs), mMix(mix), mOutput(output) {}

    /** Once the mix is over. Throws ToolError where standard output takes no more. */
    void print(std::chrono::nanoseconds elapsed) const;

private:
    const MixSession& mSession;
    const std::vector<MixInput*>& mInputs;
    MixOutput& mMix;
    const Output mOutput;
};

}  // namespace android
