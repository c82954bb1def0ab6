#include "tools/burst/BurstFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/process/StandardInput.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr size_t kBeginningByteCount = 16;

/** Signs of audio files that people take for burst streams. */
constexpr const char* kAudioSigns[] = {"RIFF", "RF64", "fLaC", "OggS", "FORM", "caff", "ID3"};

bool isText(const std::string& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) {
        return (byte >= ' ' && byte <= '~') || byte == '\n' || byte == '\r' || byte == '\t';
    });
}

constexpr const char* kPipeExample = "streamproxy hwsync pack AUDIO -o - | streamproxy ...";

int openToRead(const std::string& path) {
    if (path != "-") {
        return open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    const StandardInput checked(kPipeExample);
    struct stat status {};
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
        return open("/proc/self/fd/0", O_RDONLY | O_CLOEXEC);  // from the start each time
    }
    return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

void BurstFile::keepStandardInput() {
    const StandardInput::Stream kept = StandardInput(kPipeExample).keep();
    if (dup2(fileno(kept.get()), STDIN_FILENO) < 0) {
        throw ToolError(std::string("-: can't be kept: ") + strerror(errno));
    }
}

BurstFile::BurstFile(const std::string& path) : mPath(path), mFd(openToRead(path)) {
    struct stat status {};
    if (mFd < 0 || fstat(mFd, &status) != 0) {
        throw ToolError(path + ": " + strerror(errno) + "; check the name");
    }
    const char* problem = S_ISDIR(status.st_mode) ? "is a directory; name a burst stream in it"
                          : S_ISREG(status.st_mode) && status.st_size == 0
                              ? "is empty (0 bytes); name a file with a burst stream in it"
                              : nullptr;
    if (problem != nullptr) {
        close(mFd);  // the destructor does not run
        throw ToolError(path + ": " + problem);
    }
}

BurstFile::~BurstFile() {
    close(mFd);
}

size_t BurstFile::read(void* data, size_t byteCount) {
    size_t done = 0;
    while (done < byteCount) {
        const ssize_t count = ::read(mFd, static_cast<char*>(data) + done, byteCount - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw ToolError(mPath + ": can't be read: " + strerror(errno));
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    if (mBeginning.size() < kBeginningByteCount) {
        mBeginning.append(static_cast<const char*>(data),
                          std::min(done, kBeginningByteCount - mBeginning.size()));
    }
    return done;
}

std::string BurstFile::describeBeginning() const {
    for (const char* sign : kAudioSigns) {
        if (mBeginning.compare(0, strlen(sign), sign) == 0) {
            return "it begins with '" + std::string(sign) +
                   "' as an audio file does; make bursts of it first with 'streamproxy hwsync "
                   "pack'";
        }
    }
    if (mBeginning.empty()) {
        return "name a file with a burst stream in it";
    }
    std::string bytes = "it begins with";
    for (const char byte : mBeginning) {
        bytes += fmt::format(" {:02x}", static_cast<uint8_t>(byte));
    }
    return bytes + (isText(mBeginning) ? ", which is text" : "");
}

void BurstFile::failWithoutBursts(const BurstScanner& scanner) const {
    std::string seen = fmt::format("{} bytes", scanner.byteCount());
    if (scanner.cutHeaderByteCount() > 0) {
        seen += fmt::format(", the last {} of them a header that is cut off",
                            scanner.cutHeaderByteCount());
    }
    if (scanner.versionOneCount() > 0) {
        seen += fmt::format(", among them {} magics of version 1, which tunnel streams skip",
                            scanner.versionOneCount());
    }
    throw ToolError(mPath + ": holds no burst: no whole version-2 header in " + seen + "; " +
                    describeBeginning());
}

}  // namespace android
