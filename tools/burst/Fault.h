#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace android {

/** What a packed stream can have wrong with one of its bursts. */
enum class Fault {
    NONE,
    GARBAGE,      // bytes between the burst before and its header
    CUT_HEADER,   // the header ends behind its size, and the payload is lost
    WRONG_SIZE,   // the header announces fewer bytes than follow
    ABSURD_SIZE,  // the header announces 2^31 bytes or more
    VERSION_1,    // the header is of version 1
};

/** So many faults of one kind. */
struct FaultWish {
    Fault fault;
    int64_t count;

    /** Reads KIND or KIND=COUNT; throws ToolError (usage) naming the known kinds. */
    static FaultWish parse(const std::string& text);
};

const char* nameOf(Fault fault);

}  // namespace android
