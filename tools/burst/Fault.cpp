#include "tools/burst/Fault.h"

#include <cmath>

#include "tools/process/ToolError.h"
#include "tools/text/TimeText.h"

namespace android {

namespace {

constexpr Fault kFaults[] = {Fault::GARBAGE, Fault::CUT_HEADER, Fault::WRONG_SIZE,
                             Fault::ABSURD_SIZE, Fault::VERSION_1};

}  // namespace

const char* nameOf(Fault fault) {
    switch (fault) {
        case Fault::NONE:
            return "none";
        case Fault::GARBAGE:
            return "garbage";
        case Fault::CUT_HEADER:
            return "cut-header";
        case Fault::WRONG_SIZE:
            return "wrong-size";
        case Fault::ABSURD_SIZE:
            return "absurd-size";
        case Fault::VERSION_1:
            return "version-1";
    }
    return "";
}

FaultWish FaultWish::parse(const std::string& text) {
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const double count =
        equals == std::string::npos ? 1 : parseNumber(text.substr(equals + 1), "--fault");
    if (!(count >= 1 && count <= 1e6) || count != std::floor(count)) {
        throw ToolError("--fault: '" + text + "' asks for no number of faults from 1 to 1000000",
                        EXIT_USAGE);
    }
    std::string known;
    for (const Fault fault : kFaults) {
        if (name == nameOf(fault)) {
            return {.fault = fault, .count = static_cast<int64_t>(count)};
        }
        known += (known.empty() ? "" : ", ") + std::string(nameOf(fault));
    }
    throw ToolError("--fault: unknown kind '" + name + "'; known are " + known, EXIT_USAGE);
}

}  // namespace android
