#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/burst/PackPlan.h"
#include "tools/burst/SeededRandom.h"
#include "tools/process/OutputFile.h"

namespace android {

/** Writes bursts, sound or faulty, to a file. Threads: one at a time. */
class BurstWriter {
public:
    /** A fault as it was written. */
    struct Written {
        Fault fault;
        int64_t item;  // of the plan
        uint64_t offset;
        std::string detail;
    };

    /** `extensionByteCount` bytes stand between the fixed header and the payload. Throws ToolError
     *  when the file can't be made. */
    BurstWriter(const std::string& path, uint32_t extensionByteCount, SeededRandom& random);

    /** One burst; throws ToolError when the file can't take it. */
    void write(const PackPlan::Item& item, const std::vector<uint8_t>& payload);
    /** All of it to the disk; throws ToolError when that fails. */
    void finish();
    /** Ends a run that failed and deletes the file. */
    void abandon();

    uint64_t byteCount() const { return mByteCount; }
    int64_t itemCount() const { return mItemCount; }
    const std::vector<Written>& faults() const { return mFaults; }

private:
    void appendHeader(const PackPlan::Item& item, uint32_t version, uint32_t payloadByteCount);
    std::string spoil(const PackPlan::Item& item, const std::vector<uint8_t>& payload);
    void appendGarbage(int64_t byteCount);
    void flush();
    [[noreturn]] void fail(int errorNumber) const;

    const std::string mPath;
    const uint32_t mExtensionByteCount;
    SeededRandom& mRandom;
    OutputFile mOutput;
    std::vector<uint8_t> mBytes;  // one burst on its way
    std::vector<Written> mFaults;
    uint64_t mByteCount = 0;
    int64_t mItemCount = 0;
};

}  // namespace android
