#include "tools/process/OutputPaths.h"

#include <filesystem>

#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr const char* kStream = "-";  // standard input or output

/** Whether writing the one changes the other. Devices take anything. */
bool areSame(const std::string& output, const std::string& other) {
    namespace fs = std::filesystem;
    if (output.empty() || other.empty() || kStream == other) {
        return false;
    }
    std::error_code error;
    if (fs::exists(output, error) && !fs::is_regular_file(output, error)) {
        return false;
    }
    return fs::equivalent(output, other, error) ||
           fs::weakly_canonical(output, error) == fs::weakly_canonical(other, error);
}

}  // namespace

void OutputPaths::check() const {
    for (size_t index = 0; index < mOutputs.size(); ++index) {
        const std::string& output = mOutputs[index];
        for (const std::string& input : mInputs) {
            if (areSame(output, input)) {
                throw ToolError(output + ": is also an input; give the result another name",
                                EXIT_USAGE);
            }
        }
        for (size_t other = 0; other < index; ++other) {
            if (output == kStream && mOutputs[other] == kStream) {
                throw ToolError(
                    "-: standard output takes one result alone; give the others files, and leave "
                    "out what prints there",
                    EXIT_USAGE);
            }
            if (areSame(output, mOutputs[other])) {
                throw ToolError(output + ": is named twice; give each result a name of its own",
                                EXIT_USAGE);
            }
        }
    }
}

}  // namespace android
