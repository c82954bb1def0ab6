#pragma once

#include <string>

#include "tools/process/OutputFile.h"

namespace android {

/**
 * The file of a report: made at the start of a run, so that a path that can't be written is known
 * before anything is played, and gone again when the run comes to no report.
 * Threads: one.
 */
class ReportFile {
public:
    /** Throws ToolError naming the path. */
    explicit ReportFile(const std::string& path);
    ~ReportFile();
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    /** Throws ToolError when the file can't take it. */
    void write(const std::string& page);

private:
    const std::string mPath;
    OutputFile mFile;
    bool mIsWritten = false;
};

}  // namespace android
