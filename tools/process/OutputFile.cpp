#include "tools/process/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/process/ToolError.h"

namespace android {

namespace {

// The disk is set to work while the rest is made: less is left to wait for when the file is closed.
constexpr sf_count_t kCachedByteCount = 1 << 20;

}  // namespace

OutputFile::OutputFile(const std::string& path, const char* option)
    : mPath(path),
      mFd(isStream(path) ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                         : open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (mFd < 0) {
        throw ToolError(path + ": can't be written: " + strerror(errno) +
                        "; choose another place with " + option);
    }
    if (isStream(path)) {
        if (isatty(mFd) != 0) {
            ::close(mFd);  // the destructor does not run
            throw ToolError(std::string("-: standard output is a terminal; name a file with ") +
                                option + ", or pipe it into another program",
                            EXIT_USAGE);
        }
        return;
    }
    struct stat status {};
    mIsRegular = fstat(mFd, &status) == 0 && S_ISREG(status.st_mode);
}

OutputFile::~OutputFile() {
    close();
}

SF_VIRTUAL_IO* OutputFile::io() {
    static SF_VIRTUAL_IO sIo = {
        .get_filelen = [](void* self) { return static_cast<OutputFile*>(self)->length(); },
        .seek = [](sf_count_t offset, int whence,
                   void* self) { return static_cast<OutputFile*>(self)->seek(offset, whence); },
        .read = [](void* data, sf_count_t byteCount,
                   void* self) { return static_cast<OutputFile*>(self)->read(data, byteCount); },
        .write = [](const void* data, sf_count_t byteCount,
                    void* self) { return static_cast<OutputFile*>(self)->write(data, byteCount); },
        .tell = [](void* self) { return static_cast<OutputFile*>(self)->seek(0, SEEK_CUR); },
    };
    return &sIo;
}

int OutputFile::close() {
    if (mFd >= 0) {
        if (mIsRegular && fsync(mFd) != 0) {
            note(errno);
        }
        if (::close(mFd) != 0) {
            note(errno);
        }
        mFd = -1;
    }
    return mError;
}

void OutputFile::remove() {
    if (mIsRegular) {
        unlink(mPath.c_str());
    }
}

void OutputFile::replace(int64_t offset, const void* data, size_t byteCount) {
    if (pwrite(mFd, data, byteCount, offset) != static_cast<ssize_t>(byteCount)) {
        note(errno != 0 ? errno : EIO);
    }
}

size_t OutputFile::readBack(int64_t offset, void* data, size_t byteCount) const {
    return static_cast<size_t>(std::max<ssize_t>(pread(mFd, data, byteCount, offset), 0));
}

sf_count_t OutputFile::length() {
    if (isStream(mPath)) {
        return mStreamedByteCount;
    }
    struct stat status {};
    return fstat(mFd, &status) == 0 ? status.st_size : 0;
}

sf_count_t OutputFile::seek(sf_count_t offset, int whence) {
    if (isStream(mPath)) {
        return mStreamedByteCount;
    }
    const off_t position = lseek(mFd, offset, whence);
    if (position < 0) {
        note(errno);
    }
    return position;
}

sf_count_t OutputFile::read(void* data, sf_count_t byteCount) {
    return ::read(mFd, data, static_cast<size_t>(byteCount));
}

sf_count_t OutputFile::write(const void* data, sf_count_t byteCount) {
    sf_count_t done = 0;
    while (done < byteCount) {
        const ssize_t written = ::write(mFd, static_cast<const char*>(data) + done,
                                        static_cast<size_t>(byteCount - done));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            note(written < 0 ? errno : ENOSPC);
            break;
        }
        done += written;
    }
    mStreamedByteCount += done;
    mCachedByteCount += done;
    if (mIsRegular && mCachedByteCount >= kCachedByteCount) {
        sync_file_range(mFd, 0, 0, SYNC_FILE_RANGE_WRITE);
        mCachedByteCount = 0;
    }
    return done;
}

}  // namespace android
