#include "tools/audio/PipeReader.h"

#include <poll.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>

#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr int kFd = STDIN_FILENO;
constexpr int kPollMs = 50;  // how late an end is noticed while the pipe is silent

static_assert(std::endian::native == std::endian::little, "the samples are used as they come");

template <typename Sample>
Sample sampleAt(const std::vector<uint8_t>& bytes, size_t index) {
    Sample sample;
    memcpy(&sample, bytes.data() + index * sizeof(sample), sizeof(sample));
    return sample;
}

}  // namespace

PipeReader::PipeReader(const PipeFormat& format, bool allowTruncated)
    : mFormat(format), mAllowTruncated(allowTruncated) {
    if (isatty(kFd) != 0) {
        throw ToolError(
            "-: standard input is a terminal; pipe raw PCM into it, such as with "
            "sox FILE -t raw -r 48000 -c 2 -e signed -b 16 - | streamproxy ...");
    }
}

std::string PipeReader::describe() const {
    const std::string channels = mFormat.channelCount == 1 ? "mono"
                                 : mFormat.channelCount == 2
                                     ? "stereo"
                                     : std::to_string(mFormat.channelCount) + " channels";
    return std::to_string(mFormat.rateHz) + " Hz, " + std::to_string(mFormat.bits) +
           "-bit PCM from a pipe, " + channels;
}

size_t PipeReader::read16(int16_t* out, size_t frameCount) {
    const size_t framesRead = readFrames(frameCount);
    const size_t sampleCount = framesRead * mFormat.channelCount;
    for (size_t i = 0; i < sampleCount; ++i) {
        out[i] = mFormat.bits == 16 ? sampleAt<int16_t>(mBytes, i)
                                    : static_cast<int16_t>(sampleAt<int32_t>(mBytes, i) >> 16);
    }
    return framesRead;
}

size_t PipeReader::readQ27(int32_t* out, size_t frameCount) {
    const size_t framesRead = readFrames(frameCount);
    const size_t sampleCount = framesRead * mFormat.channelCount;
    for (size_t i = 0; i < sampleCount; ++i) {
        out[i] = mFormat.bits == 16 ? sampleAt<int16_t>(mBytes, i) * 4096
                                    : sampleAt<int32_t>(mBytes, i) >> 4;
    }
    return framesRead;
}

size_t PipeReader::readFrames(size_t frameCount) {
    const size_t frameBytes = mFormat.frameBytes();
    mBytes.resize(frameCount * frameBytes);
    size_t byteCount = 0;
    while (!mIsOver && byteCount < mBytes.size() && waitForBytes()) {
        const ssize_t got = ::read(kFd, mBytes.data() + byteCount, mBytes.size() - byteCount);
        if (got < 0 && errno != EINTR && errno != EAGAIN) {
            throw ToolError(std::string("-: standard input can't be read: ") + strerror(errno) +
                            "; pipe raw PCM into it");
        }
        mIsOver = got == 0;
        byteCount += got > 0 ? static_cast<size_t>(got) : 0;
    }
    if (mFramesRead == 0) {
        checkBegin(byteCount);
    }
    mFramesRead += static_cast<int64_t>(byteCount / frameBytes);
    if (mIsOver) {
        checkEnd(byteCount % frameBytes);
    }
    return byteCount / frameBytes;
}

bool PipeReader::waitForBytes() const {
    while (!mIsCancelled.load(std::memory_order_relaxed) && Interrupt::signalNumber() == 0) {
        pollfd waited{.fd = kFd, .events = POLLIN, .revents = 0};
        if (poll(&waited, 1, kPollMs) > 0) {
            return true;
        }
    }
    return false;
}

/** The header of a file would be heard as a click, and its rate and channels be guessed at. */
void PipeReader::checkBegin(size_t byteCount) const {
    for (const char* name : {"RIFF", "RF64", "FORM", "fLaC", "OggS", "caff"}) {
        if (byteCount >= 4 && memcmp(mBytes.data(), name, 4) == 0) {
            throw ToolError(std::string("-: begins with '") + name +
                            "' as an audio file does; name the file, or pipe its decoded samples");
        }
    }
}

void PipeReader::checkEnd(size_t leftoverBytes) const {
    // Whoever presses Ctrl-C ends the program in front of the pipe as well.
    if (Interrupt::signalNumber() != 0) {
        return;
    }
    if (mFramesRead == 0 && leftoverBytes == 0) {
        throw ToolError("-: the pipe brought no audio; see whether the program before it runs");
    }
    if (leftoverBytes > 0 && !mAllowTruncated) {
        throw ToolError("-: the pipe ends inside a frame (" + std::to_string(leftoverBytes) +
                        " of " + std::to_string(mFormat.frameBytes()) +
                        " bytes); check channels and format, or take it with --allow-truncated");
    }
}

void PipeReader::rewind() {
    throw ToolError("-: a pipe can't be played again");
}

}  // namespace android
