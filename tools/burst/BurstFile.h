#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/burst/BurstScanner.h"

namespace android {

/**
 * A file with a burst stream, or standard input for "-", read from its start to its end.
 * Threads: one at a time.
 */
class BurstFile {
public:
    /** Throws ToolError naming a file that is missing, a directory, empty, or can't be read. */
    explicit BurstFile(const std::string& path);
    ~BurstFile();
    BurstFile(const BurstFile&) = delete;
    BurstFile& operator=(const BurstFile&) = delete;

    /**
     * Puts a file in the place of standard input with all that it brings, so that "-" can be
     * opened more than once. Throws ToolError.
     */
    static void keepStandardInput();

    const std::string& path() const { return mPath; }
    /** The next bytes; fewer than asked at the end only. Throws ToolError. */
    size_t read(void* data, size_t byteCount);
    /** Throws ToolError saying what the file holds instead of bursts. */
    [[noreturn]] void failWithoutBursts(const BurstScanner& scanner) const;

private:
    std::string describeBeginning() const;

    const std::string mPath;
    int mFd;
    std::string mBeginning;  // the first bytes, for the message
};

}  // namespace android
