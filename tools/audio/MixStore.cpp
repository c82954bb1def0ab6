#include "tools/audio/MixStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr double kFullScaleQ27 = 134217728.0;
constexpr size_t kFramesAtOnce = 8192;

FILE* openNameless(const std::string& outputPath) {
    std::string name = outputPath + ".XXXXXX";
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) {
        return tmpfile();
    }
    unlink(name.c_str());
    return fdopen(fd, "w+b");
}

}  // namespace

MixStore::MixStore(const std::string& outputPath)
    : mOutputPath(outputPath), mFile(openNameless(outputPath)) {
    if (!mFile) {
        fail();
    }
}

void MixStore::write(const int32_t* frames, size_t frameCount) {
    for (size_t i = 0; i < frameCount * 2; ++i) {
        mPeak = std::max(mPeak, std::abs(frames[i] / kFullScaleQ27));
    }
    if (fwrite(frames, 2 * sizeof(*frames), frameCount, mFile.get()) != frameCount) {
        fail();
    }
}

void MixStore::read(double scale, const std::function<void(const int32_t*, size_t)>& take) {
    if (fflush(mFile.get()) != 0) {
        fail();
    }
    std::rewind(mFile.get());
    std::vector<int32_t> frames(kFramesAtOnce * 2);
    size_t frameCount = 0;
    while ((frameCount = fread(frames.data(), 2 * sizeof(int32_t), kFramesAtOnce, mFile.get())) >
           0) {
        std::transform(frames.begin(), frames.end(), frames.begin(), [scale](int32_t sample) {
            return static_cast<int32_t>(std::llround(sample * scale));
        });
        take(frames.data(), frameCount);
    }
    if (ferror(mFile.get()) != 0) {
        fail();
    }
}

void MixStore::fail() const {
    throw ToolError(mOutputPath + ": no room to keep the mix until its peak is known (" +
                    strerror(errno) + "); make room, or leave out --normalize");
}

}  // namespace android
