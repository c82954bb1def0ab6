#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace android {

/**
 * Keeps Q4.27 stereo frames on disk, in a file without a name, until their peak is known.
 * Threads: one at a time.
 */
class MixStore {
public:
    /** In the folder of `outputPath` where that can be written, which has room for the output. */
    explicit MixStore(const std::string& outputPath);

    /** Throws ToolError where the disk takes no more. */
    void write(const int32_t* frames, size_t frameCount);
    /** Of all frames; 1.0 is full scale. */
    double peak() const { return mPeak; }
    /** All frames once more, times `scale`, some at a time. */
    void read(double scale, const std::function<void(const int32_t*, size_t)>& take);

private:
    struct Close {
        void operator()(FILE* file) const { fclose(file); }
    };
    [[noreturn]] void fail() const;

    const std::string mOutputPath;
    std::unique_ptr<FILE, Close> mFile;
    double mPeak = 0.0;
};

}  // namespace android
