#include "tools/report/ReportFile.h"

#include <cstring>

#include "tools/process/ToolError.h"

namespace android {

ReportFile::ReportFile(const std::string& path) : mPath(path), mFile(path, "--report") {}

ReportFile::~ReportFile() {
    if (!mIsWritten) {
        mFile.remove();
    }
}

void ReportFile::write(const std::string& page) {
    OutputFile::io()->write(page.data(), static_cast<sf_count_t>(page.size()), &mFile);
    if (mFile.close() != 0) {
        throw ToolError(mPath + ": writing failed: " + strerror(mFile.error()) +
                        "; make room or choose another place with --report");
    }
    mIsWritten = true;
}

}  // namespace android
