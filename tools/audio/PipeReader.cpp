#include "tools/audio/PipeReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "tools/audio/FullScale.h"
#include "tools/process/Interrupt.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr int64_t kPassedAtOnce = 4096;  // frames

static_assert(std::endian::native == std::endian::little, "the samples are used as they come");

template <typename Sample>
Sample sampleAt(const std::vector<uint8_t>& bytes, size_t index) {
    Sample sample;
    memcpy(&sample, bytes.data() + index * sizeof(sample), sizeof(sample));
    return sample;
}

int32_t q27At(const std::vector<uint8_t>& bytes, size_t index, PipeFormat::Sample sample) {
    switch (sample) {
        case PipeFormat::Sample::S16:
            return sampleAt<int16_t>(bytes, index) * 4096;
        case PipeFormat::Sample::S24: {
            const uint8_t* three = bytes.data() + 3 * index;
            const uint32_t top =
                uint32_t{three[0]} << 8 | uint32_t{three[1]} << 16 | uint32_t{three[2]} << 24;
            return static_cast<int32_t>(top) >> 4;
        }
        case PipeFormat::Sample::S32:
            return sampleAt<int32_t>(bytes, index) >> 4;
        case PipeFormat::Sample::F32:
            break;
    }
    return q27Of(double{sampleAt<float>(bytes, index)});
}

const char* nameOf(PipeFormat::Sample sample) {
    switch (sample) {
        case PipeFormat::Sample::S16:
            return "16-bit PCM";
        case PipeFormat::Sample::S24:
            return "24-bit PCM";
        case PipeFormat::Sample::S32:
            return "32-bit PCM";
        case PipeFormat::Sample::F32:
            break;
    }
    return "32-bit float";
}

}  // namespace

PipeReader::PipeReader(std::unique_ptr<StandardInput> input, const Content& content,
                       bool allowTruncated)
    : mInput(std::move(input)),
      mContent(content),
      mAllowTruncated(allowTruncated),
      mBytesLeft(content.audioBytes < 0 ? INT64_MAX : content.audioBytes) {}

std::string PipeReader::describe() const {
    const uint32_t channels = channelCount();
    return fmt::format("{} Hz, {} from a pipe, {}", rateHz(), nameOf(mContent.format.sample),
                       channels == 1   ? "mono"
                       : channels == 2 ? "stereo"
                                       : std::to_string(channels) + " channels");
}

size_t PipeReader::read16(int16_t* out, size_t frameCount) {
    const size_t framesRead = readFrames(frameCount);
    for (size_t i = 0; i < framesRead * channelCount(); ++i) {
        out[i] = fits16Bits() ? sampleAt<int16_t>(mBytes, i)
                              : static_cast<int16_t>(std::clamp(
                                    q27At(mBytes, i, mContent.format.sample) >> 12, -32768, 32767));
    }
    return framesRead;
}

size_t PipeReader::readQ27(int32_t* out, size_t frameCount) {
    const size_t framesRead = readFrames(frameCount);
    for (size_t i = 0; i < framesRead * channelCount(); ++i) {
        out[i] = q27At(mBytes, i, mContent.format.sample);
    }
    return framesRead;
}

size_t PipeReader::readFrames(size_t frameCount) {
    if (!mHasBegun) {
        mHasBegun = true;
        passOver();
    }
    return receiveFrames(frameCount);
}

void PipeReader::passOver() {
    mBytes.resize(static_cast<size_t>(mContent.headerBytes));
    mInput->read(mBytes.data(), mBytes.size());
    const int64_t fromFrame = std::llround(mContent.fromSec * rateHz());
    int64_t passed = 0;
    while (passed < fromFrame) {
        const size_t got =
            receiveFrames(static_cast<size_t>(std::min(fromFrame - passed, kPassedAtOnce)));
        if (got == 0) {
            break;
        }
        passed += static_cast<int64_t>(got);
    }
    if (passed < fromFrame && Interrupt::signalNumber() == 0) {
        throw ToolError(fmt::format("-: from: the pipe ended after {:f} s; begin before that",
                                    static_cast<double>(passed) / rateHz()));
    }
}

size_t PipeReader::receiveFrames(size_t frameCount) {
    const size_t frameBytes = mContent.format.frameBytes();
    const auto wanted = std::min(static_cast<int64_t>(frameCount * frameBytes), mBytesLeft);
    mBytes.resize(static_cast<size_t>(wanted));
    const size_t byteCount = mInput->read(mBytes.data(), mBytes.size());
    mFramesRead += static_cast<int64_t>(byteCount / frameBytes);
    mBytesLeft -= static_cast<int64_t>(byteCount);
    if (byteCount < mBytes.size()) {
        checkEnd(byteCount % frameBytes);
    }
    return byteCount / frameBytes;
}

/** The pipe is over, or nobody wants more of it. */
void PipeReader::checkEnd(size_t leftoverBytes) const {
    // Whoever presses Ctrl-C ends the program in front of the pipe as well.
    if (Interrupt::signalNumber() != 0 || mInput->isCancelled()) {
        return;
    }
    if (mFramesRead == 0 && leftoverBytes == 0) {
        throw ToolError("-: the pipe brought no audio; see whether the program before it runs");
    }
    if (mAllowTruncated) {
        return;
    }
    if (mContent.audioBytes >= 0) {
        throw ToolError(
            "-: is truncated: its header promises more audio than the pipe brought; see what the "
            "program before it says, or take what is there with --allow-truncated");
    }
    if (leftoverBytes > 0) {
        throw ToolError(
            fmt::format("-: the pipe ends inside a frame ({} of {} bytes); check channels and "
                        "format, or take it with --allow-truncated",
                        leftoverBytes, mContent.format.frameBytes()));
    }
}

void PipeReader::rewind() {
    throw ToolError("-: a pipe can't be played again");
}

}  // namespace android
