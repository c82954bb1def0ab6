#pragma once

#include <sndfile.h>

#include <cstdint>
#include <string>

namespace android {

/**
 * A file for the encoder to write into, which remembers the first error: a full disk may show
 * while the samples go out, when the header is completed, or when the system writes its cache.
 * Threads: one at a time.
 */
class OutputFile {
public:
    /**
     * Creates or empties `path`, or takes standard output for "-", which must be no terminal. Throws
     * ToolError naming it and the option that chose it.
     */
    explicit OutputFile(const std::string& path, const char* option = "-o");
    ~OutputFile();  // closes
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /** Standard output, in which nobody goes back. */
    static bool isStream(const std::string& path) { return path == "-"; }
    /** Writes as the encoder does; the first error is remembered. */
    void append(const void* data, size_t byteCount) {
        write(data, static_cast<sf_count_t>(byteCount));
    }
    /** Replaces bytes that were written before, in a file. */
    void replace(int64_t offset, const void* data, size_t byteCount);
    /** Bytes that were written before, in a file; how many there are. */
    size_t readBack(int64_t offset, void* data, size_t byteCount) const;

    /** What the encoder does its I/O with; this object is its user data. */
    static SF_VIRTUAL_IO* io();

    /** Everything to the disk, then closed; the error number of the first failure, or 0. */
    int close();
    /** The first failure so far, or 0. */
    int error() const { return mError; }
    /** Deletes the file, if it is one that this object made or emptied. */
    void remove();

private:
    void note(int errorNumber) { mError = mError ? mError : errorNumber; }
    sf_count_t length();
    sf_count_t seek(sf_count_t offset, int whence);
    sf_count_t read(void* data, sf_count_t byteCount);
    sf_count_t write(const void* data, sf_count_t byteCount);

    const std::string mPath;
    int mFd;
    int mError = 0;
    bool mIsRegular = false;
    int64_t mStreamedByteCount = 0;
    sf_count_t mCachedByteCount = 0;  // written since the disk was last set to work
};

}  // namespace android
