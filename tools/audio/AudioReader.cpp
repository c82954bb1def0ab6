#include "tools/audio/AudioReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "tools/audio/ForeignFormat.h"
#include "tools/audio/FullScale.h"
#include "tools/audio/StreamConfig.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

/**
 * What the log of an opened file says about its sample chunk, as in "data : 1000 (should be 400)":
 * true when the header promises more bytes than the file has. Writers to a pipe can't know the
 * length and write a size around 2^31 or 2^32 instead; that is no truncation.
 */
bool promisesMoreThanItHas(const std::string& log) {
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const bool isSampleChunk = line.find("data") != std::string::npos ||
                                   line.find("SSND") != std::string::npos ||
                                   line.find("Data Size") != std::string::npos;
        const size_t colon = line.find(':');
        const size_t should = line.find("(should be ");
        if (!isSampleChunk || colon == std::string::npos || should == std::string::npos) {
            continue;
        }
        const int64_t promised = std::strtoll(line.c_str() + colon + 1, nullptr, 10);
        const int64_t present = std::strtoll(line.c_str() + should + 11, nullptr, 10);
        const bool isUnknown = promised <= 0 || promised >= 0x7fff0000;
        if (!isUnknown && promised > present) {
            return true;
        }
    }
    return false;
}

}  // namespace

AudioReader::AudioReader(const std::string& path, Options options)
    : mPath(path), mOptions(std::move(options)) {
    if (!mOptions.content) {
        checkPath();
    }
    openFile();
    checkWhole();
    mFromFrame = std::llround(mOptions.fromSec * mInfo.samplerate);
    if (mFromFrame >= mInfo.frames) {
        throw ToolError(fmt::format("{}: from: it is only {:f} s long; begin before its end", mPath,
                                    static_cast<double>(mInfo.frames) / mInfo.samplerate),
                        EXIT_USAGE);
    }
    if (mFromFrame > 0) {
        begin();
    }
}

void AudioReader::checkPath() const {
    std::error_code error;
    const auto status = std::filesystem::status(mPath, error);
    if (!std::filesystem::exists(status)) {
        const int code = error.value() != 0 ? error.value() : ENOENT;
        fail(std::string(strerror(code)) + "; check the name");
    }
    if (std::filesystem::is_directory(status)) {
        fail("is a directory; name the audio files in it");
    }
    if (std::filesystem::is_regular_file(status) && std::filesystem::file_size(mPath, error) == 0) {
        fail("is empty (0 bytes); name a file with audio in it");
    }
}

void AudioReader::openFile() {
    mFile.reset(mOptions.content
                    ? sf_open_fd(fileno(mOptions.content.get()), SFM_READ, &mInfo, SF_FALSE)
                    : sf_open(mPath.c_str(), SFM_READ, &mInfo));
    if (!mFile) {
        if (sf_error(nullptr) == SF_ERR_SYSTEM) {
            fail(std::string("can't be opened: ") + sf_strerror(nullptr));
        }
        failToOpen(sf_strerror(nullptr));
    }
    switch (mInfo.format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_ALAC_20:
        case SF_FORMAT_ALAC_24:
        case SF_FORMAT_ALAC_32:
            mSamples = Samples::BITS_32;
            break;
        // Lossy codecs decode to real numbers of no given width, and above full scale at times.
        case SF_FORMAT_FLOAT:
        case SF_FORMAT_DOUBLE:
        case SF_FORMAT_VORBIS:
        case SF_FORMAT_OPUS:
        case SF_FORMAT_MPEG_LAYER_I:
        case SF_FORMAT_MPEG_LAYER_II:
        case SF_FORMAT_MPEG_LAYER_III:
            mSamples = Samples::REAL;
            break;
        default:
            mSamples = Samples::BITS_16;
    }
}

/** What it may be instead, and how it can be heard all the same. */
void AudioReader::failToOpen(const std::string& reason) const {
    const std::vector<uint8_t> bytes = beginning();
    if (isOpus(bytes)) {
        fail("is Opus that libsndfile stumbles over (" + reason + ") and that may be sound; " +
             kConvertByPipe);
    }
    const std::string foreign = foreignFormatOf(bytes);
    if (!foreign.empty()) {
        fail("is " + foreign + ", which can't be read here; " + kConvertByPipe);
    }
    fail("is not audio that can be read here (" + reason +
         "); WAV, FLAC, Ogg, AIFF, CAF and others of that kind can");
}

std::vector<uint8_t> AudioReader::beginning() const {
    std::vector<uint8_t> bytes(kBeginningByteCount);
    const StandardInput::Stream opened(mOptions.content ? nullptr : fopen(mPath.c_str(), "rb"));
    FILE* stream = mOptions.content ? mOptions.content.get() : opened.get();
    if (stream == nullptr || fseek(stream, 0, SEEK_SET) != 0) {
        return {};
    }
    bytes.resize(fread(bytes.data(), 1, bytes.size(), stream));
    return bytes;
}

void AudioReader::checkWhole() {
    char log[8192] = {};
    sf_command(mFile.get(), SFC_GET_LOG_INFO, log, sizeof(log));
    if (!mOptions.allowTruncated && promisesMoreThanItHas(log)) {
        fail(
            "is truncated: its header promises more audio than the file has; copy it again, or "
            "take what is there with --allow-truncated");
    }
    if (mInfo.frames == SF_COUNT_MAX) {
        // An Ogg stream without its last page, which has the length.
        if (!mOptions.allowTruncated) {
            fail(
                "is truncated: its end is missing; copy it again, or take what is there with "
                "--allow-truncated");
        }
        mInfo.frames = countFrames();
    }
    if (mInfo.frames <= 0) {
        fail("holds no audio (0 frames)");
    }
    if (mInfo.samplerate < kMinRateHz || mInfo.samplerate > kMaxRateHz) {
        fail(fmt::format("has a rate of {} Hz; rates from {} to {} Hz can be mixed",
                         mInfo.samplerate, kMinRateHz, kMaxRateHz));
    }
}

/** By decoding all of it. */
sf_count_t AudioReader::countFrames() {
    constexpr sf_count_t kAtOnce = 4096;
    std::vector<short> frames(static_cast<size_t>(kAtOnce) * channelCount());
    sf_count_t total = 0;
    for (sf_count_t count = 1; count > 0; total += count) {
        count = std::max<sf_count_t>(sf_readf_short(mFile.get(), frames.data(), kAtOnce), 0);
    }
    begin();
    return total;
}

std::vector<int> AudioReader::channelMap() const {
    std::vector<int> map(channelCount());
    const int status = sf_command(mFile.get(), SFC_GET_CHANNEL_MAP_INFO, map.data(),
                                  static_cast<int>(map.size() * sizeof(int)));
    // A header may have room for it and leave it open.
    const bool isTold = status == SF_TRUE && map.front() != SF_CHANNEL_MAP_INVALID;
    return isTold ? map : std::vector<int>();
}

std::string AudioReader::describe() const {
    SF_FORMAT_INFO info{};
    info.format = mInfo.format & SF_FORMAT_SUBMASK;
    sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info));
    std::string channels = fmt::format("{} channels", mInfo.channels);
    if (mInfo.channels <= 2) {
        channels = mInfo.channels == 1 ? "mono" : "stereo";
    }
    return fmt::format("{} Hz, {}, {}", mInfo.samplerate, info.name ? info.name : "unknown format",
                       channels);
}

size_t AudioReader::read16(int16_t* out, size_t frameCount) {
    return checkRead(sf_readf_short(mFile.get(), out, static_cast<sf_count_t>(frameCount)),
                     frameCount);
}

size_t AudioReader::readQ27(int32_t* out, size_t frameCount) {
    const size_t sampleCount = frameCount * channelCount();
    if (mSamples != Samples::REAL) {
        const auto framesRead = sf_readf_int(mFile.get(), out, static_cast<sf_count_t>(frameCount));
        std::transform(out, out + sampleCount, out, [](int32_t sample) { return sample >> 4; });
        return checkRead(framesRead, frameCount);
    }
    mScratch.resize(sampleCount);
    const auto framesRead =
        sf_readf_double(mFile.get(), mScratch.data(), static_cast<sf_count_t>(frameCount));
    std::transform(mScratch.begin(), mScratch.end(), out, q27Of);
    return checkRead(framesRead, frameCount);
}

size_t AudioReader::checkRead(sf_count_t framesRead, size_t frameCount) {
    const auto count = static_cast<size_t>(std::max<sf_count_t>(framesRead, 0));
    mPosition += static_cast<int64_t>(count);
    const bool isBroken = sf_error(mFile.get()) != SF_ERR_NO_ERROR ||
                          (count < frameCount && mPosition < mInfo.frames);
    if (isBroken && !mOptions.allowTruncated) {
        const std::string reason =
            sf_error(mFile.get()) != SF_ERR_NO_ERROR
                ? std::string(sf_strerror(mFile.get()))
                : fmt::format("only {} of {} frames can be decoded", mPosition, mInfo.frames);
        if ((mInfo.format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
            fail(
                fmt::format("is Opus that libsndfile stumbles over after {:f} s ({}) and that may "
                            "be sound; {}; or take what is there with --allow-truncated",
                            static_cast<double>(mPosition) / rateHz(), reason, kConvertByPipe));
        }
        fail(
            fmt::format("is corrupted after {:f} s ({}); copy it again, or take what is there with "
                        "--allow-truncated",
                        static_cast<double>(mPosition) / rateHz(), reason));
    }
    return count;
}

void AudioReader::rewind() {
    begin();
}

void AudioReader::begin() {
    if (sf_seek(mFile.get(), mFromFrame, SEEK_SET) != mFromFrame) {
        fail(mFromFrame == 0 ? "can't be played again from its start; play it once, without loop"
                             : "can't be begun inside; play it without from");
    }
    mPosition = mFromFrame;
}

void AudioReader::fail(const std::string& what) const {
    throw ToolError(mPath + ": " + what);
}

}  // namespace android
