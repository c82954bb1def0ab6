#pragma once

#include <string>
#include <vector>

namespace android {

/**
 * The files of one command: those that it writes must be neither each other nor any that it reads,
 * however their paths are spelt. Empty paths stand for files that were not named, "-" for standard
 * input and output, where one result has place.
 */
class OutputPaths {
public:
    void addOutput(const std::string& path) { mOutputs.push_back(path); }
    void addInput(const std::string& path) { mInputs.push_back(path); }

    /** Throws ToolError (usage) naming the first output that would overwrite something. */
    void check() const;

private:
    std::vector<std::string> mOutputs;
    std::vector<std::string> mInputs;
};

}  // namespace android
