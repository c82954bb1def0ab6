#include "tools/audio/OpenInput.h"

#include <vector>

#include "tools/audio/AudioReader.h"
#include "tools/audio/BoostedInput.h"
#include "tools/audio/DownmixedInput.h"
#include "tools/audio/ForeignFormat.h"
#include "tools/audio/PipeReader.h"
#include "tools/audio/WavHeader.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr const char* kPipeExample = "ffmpeg -v error -i FILE -f wav - | streamproxy ...";

std::unique_ptr<AudioInput> openPipe(const InputSpec& spec, bool allowTruncated, PipeUse pipeUse) {
    auto input = std::make_unique<StandardInput>(kPipeExample);
    const std::vector<uint8_t> beginning = input->peek(kBeginningByteCount);
    const std::string sign = audioSignOf(beginning);
    const std::string foreign = foreignContainerOf(beginning);
    if (!foreign.empty()) {
        throw ToolError("-: is " + foreign + ", which can't be read here; " + kConvertByPipe);
    }
    if (!sign.empty() && spec.hasPipeFormat) {
        throw ToolError("-: begins with '" + sign +
                            "' as an audio file does, which says itself what it holds; leave rate, "
                            "channels and format out",
                        EXIT_USAGE);
    }
    if (sign.empty() && pipeUse == PipeUse::KEPT) {
        throw ToolError(
            "-: " +
            std::string(beginning.empty() ? "brought nothing" : "does not begin as an audio file") +
            "; pipe WAV, FLAC or Ogg into it, such as with " + kPipeExample);
    }
    PipeReader::Content content{.format = spec.pipeFormat, .fromSec = spec.fromSec};
    if (!sign.empty()) {
        const auto header = pipeUse == PipeUse::STREAMED ? WavHeader::peek(*input) : std::nullopt;
        if (!header) {
            return std::make_unique<AudioReader>(
                "-", AudioReader::Options{.allowTruncated = allowTruncated,
                                          .fromSec = spec.fromSec,
                                          .content = input->keep()});
        }
        content.format = header->format;
        content.headerBytes = header->headerBytes;
        content.audioBytes = header->audioBytes;
    }
    return std::make_unique<PipeReader>(std::move(input), content, allowTruncated);
}

}  // namespace

std::unique_ptr<AudioInput> openInput(const InputSpec& spec, bool allowTruncated, PipeUse pipeUse) {
    std::unique_ptr<AudioInput> input;
    if (spec.isPipe()) {
        input = openPipe(spec, allowTruncated, pipeUse);
    } else {
        input = std::make_unique<AudioReader>(
            spec.path,
            AudioReader::Options{
                .allowTruncated = allowTruncated, .fromSec = spec.fromSec, .content = nullptr});
    }
    if (spec.isDownmixed && input->channelCount() > 2) {
        input = std::make_unique<DownmixedInput>(std::move(input), spec.path);
    }
    if (spec.boost > 1.0f) {
        input = std::make_unique<BoostedInput>(std::move(input), spec.boost);
    }
    return input;
}

}  // namespace android
