#include "tools/audio/AudioWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "tools/audio/FullScale.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr int kChannels = 2;
constexpr float kFullScaleQ27 = 134217728.0f;

// For one call of the encoder, which passes them on as they are: a call into the system for each
// block of a mix costs more. In front of the encoder, so that it counts what the disk has taken, and
// a header can be completed that promises no more.
constexpr size_t kGatheredBytes = 65536;

// FLAC's frames name rates in Hz up to the first, above it in tens of Hz.
constexpr uint32_t kFlacMaxExactHz = 65535;
constexpr uint32_t kFlacMaxHz = 655350;

std::string extensionOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return extension;
}

/** The container that the name asks for, with the widest samples it has up to `bits`; 0: none. */
int formatOf(const std::string& path, uint32_t bits, bool isFloat) {
    const int samples = isFloat      ? SF_FORMAT_FLOAT
                        : bits == 16 ? SF_FORMAT_PCM_16
                                     : SF_FORMAT_PCM_32;
    if (OutputFile::isStream(path)) {
        return SF_FORMAT_RAW | SF_ENDIAN_LITTLE | samples;  // behind a header of our own
    }
    const std::string extension = extensionOf(path);
    if (extension == ".wav") {
        return SF_FORMAT_RF64 | samples;  // an ordinary WAV unless it passes 4 GiB
    }
    if (extension == ".flac") {
        return SF_FORMAT_FLAC | (isFloat      ? SF_FORMAT_FLOAT
                                 : bits == 16 ? SF_FORMAT_PCM_16
                                              : SF_FORMAT_PCM_24);
    }
    if (extension == ".aiff" || extension == ".aif") {
        return SF_FORMAT_AIFF | samples;
    }
    return extension == ".caf" ? SF_FORMAT_CAF | samples : 0;
}

SF_INFO infoOf(const std::string& path, uint32_t rateHz, uint32_t bits, bool isFloat) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(rateHz);
    info.channels = kChannels;
    info.format = formatOf(path, bits, isFloat);
    return info;
}

void append(std::vector<uint8_t>& bytes, const char* name) {
    bytes.insert(bytes.end(), name, name + 4);
}

void append(std::vector<uint8_t>& bytes, uint64_t number, size_t byteCount) {
    for (size_t i = 0; i < byteCount; ++i) {
        bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
    }
}

/** The chunk "fmt " of WAV in its first and plain form. */
void appendFormat(std::vector<uint8_t>& bytes, const SF_INFO& info) {
    const int samples = info.format & SF_FORMAT_SUBMASK;
    const uint64_t sampleBytes = samples == SF_FORMAT_PCM_16   ? 2
                                 : samples == SF_FORMAT_PCM_24 ? 3
                                                               : 4;
    const auto rateHz = static_cast<uint64_t>(info.samplerate);
    append(bytes, "fmt ");
    append(bytes, 16, 4);
    append(bytes, samples == SF_FORMAT_FLOAT ? 3 : 1, 2);
    append(bytes, kChannels, 2);
    append(bytes, rateHz, 4);
    append(bytes, rateHz * kChannels * sampleBytes, 4);
    append(bytes, kChannels * sampleBytes, 2);
    append(bytes, 8 * sampleBytes, 2);
}

/** In front of samples whose number nobody knows yet. */
std::vector<uint8_t> streamedHeader(const SF_INFO& info) {
    std::vector<uint8_t> bytes;
    append(bytes, "RIFF");
    append(bytes, 0xffffffff, 4);
    append(bytes, "WAVE");
    appendFormat(bytes, info);
    append(bytes, "data");
    append(bytes, 0xffffffff, 4);
    return bytes;
}

}  // namespace

void AudioWriter::check(const std::string& path, uint32_t rateHz, uint32_t bits, bool isFloat) {
    SF_INFO info = infoOf(path, rateHz, bits, isFloat);
    if (info.format == 0) {
        throw ToolError(path +
                            ": can't tell the format from the name; end it in .wav, .flac, "
                            ".aiff or .caf, or name - for WAV on standard output",
                        EXIT_USAGE);
    }
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC &&
        (rateHz > kFlacMaxHz || (rateHz > kFlacMaxExactHz && rateHz % 10 != 0))) {
        throw ToolError(fmt::format("{}: FLAC has rates up to 655350 Hz, above 65535 Hz in steps "
                                    "of 10, and not {} Hz; choose .wav or another --rate",
                                    path, rateHz),
                        EXIT_USAGE);
    }
    if (!sf_format_check(&info)) {
        throw ToolError(
            path + ": this format can't hold " +
                (isFloat ? "floating point; choose .wav, or --format 32"
                         : fmt::format("{} Hz with {} bits; choose .wav or another --rate", rateHz,
                                       bits)),
            EXIT_USAGE);
    }
}

uint32_t AudioWriter::fileBits(const std::string& path, uint32_t bits) {
    return (formatOf(path, bits, false) & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_24 ? 24 : bits;
}

AudioWriter::AudioWriter(const std::string& path, uint32_t rateHz, uint32_t bits, bool isFloat)
    : mPath(path),
      mBits(bits),
      mIsFloat(isFloat),
      mInfo(infoOf(path, rateHz, bits, isFloat)),
      mOutput(path) {
    SF_INFO info = mInfo;
    if (OutputFile::isStream(path)) {
        const std::vector<uint8_t> header = streamedHeader(info);
        mOutput.append(header.data(), header.size());
    }
    mEncoder.reset(sf_open_virtual(OutputFile::io(), SFM_WRITE, &info, &mOutput));
    if (!mEncoder || mOutput.error() != 0) {
        const int errorNumber = mOutput.error();
        abandon();
        fail(errorNumber);
    }
    sf_command(mEncoder.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter() {
    if (mEncoder) {
        abandon();
    }
}

void AudioWriter::write(const void* frames, size_t frameCount) {
    const auto* bytes = static_cast<const uint8_t*>(frames);
    mGathered.insert(mGathered.end(), bytes, bytes + frameCount * frameBytes());
    if (mGathered.size() >= kGatheredBytes) {
        encode();
    }
}

void AudioWriter::encode() {
    if (mGathered.empty()) {
        return;
    }
    const size_t frameCount = mGathered.size() / frameBytes();
    const auto count = static_cast<sf_count_t>(frameCount);
    sf_count_t written = 0;
    if (mBits == 16) {
        written = sf_writef_short(mEncoder.get(), reinterpret_cast<const short*>(mGathered.data()),
                                  count);
    } else if (mIsFloat) {
        const auto* samples = reinterpret_cast<const int32_t*>(mGathered.data());
        mReal.resize(frameCount * kChannels);
        std::transform(samples, samples + mReal.size(), mReal.begin(),
                       [](int32_t sample) { return static_cast<float>(sample) / kFullScaleQ27; });
        written = sf_writef_float(mEncoder.get(), mReal.data(), count);
    } else {
        const size_t sampleCount = frameCount * kChannels;
        mFullScale.resize(sampleCount);
        for (size_t i = 0; i < sampleCount; ++i) {
            mFullScale[i] = heldSample(fullScaleSample(mGathered.data(), i, mBits));
        }
        written = sf_writef_int(mEncoder.get(), mFullScale.data(), count);
    }
    mGathered.clear();
    mHasAudio = mHasAudio || written > 0;
    if (written != count || mOutput.error() != 0) {
        fail(mOutput.error());
    }
}

void AudioWriter::finish() {
    encode();
    const int status = sf_close(mEncoder.release());
    makePlain();
    const int errorNumber = mOutput.close();
    if (status != 0 || errorNumber != 0) {
        fail(errorNumber);
    }
}

/**
 * libsndfile leaves an extensible header in an RF64 file that turns out to be short enough for
 * WAV, and not every program reads that. What the plain one has less becomes a chunk of filling.
 */
void AudioWriter::makePlain() {
    constexpr int64_t kFormatAt = 44;  // behind "RIFF", its size, "WAVE", and room for "ds64"
    constexpr uint8_t kExtensible[] = {'f', 'm', 't', ' ', 40, 0, 0, 0, 0xfe, 0xff};
    uint8_t begin[kFormatAt + sizeof(kExtensible)] = {};
    if (extensionOf(mPath) != ".wav" ||
        mOutput.readBack(0, begin, sizeof(begin)) != sizeof(begin) ||
        memcmp(begin, "RIFF", 4) != 0 ||
        memcmp(begin + kFormatAt, kExtensible, sizeof(kExtensible)) != 0) {
        return;
    }
    std::vector<uint8_t> bytes;
    appendFormat(bytes, mInfo);
    append(bytes, "JUNK");
    append(bytes, 16, 4);
    bytes.resize(bytes.size() + 16);
    mOutput.replace(kFormatAt, bytes.data(), bytes.size());
}

void AudioWriter::abandon() {
    if (mEncoder && mOutput.error() == 0) {
        try {
            encode();
        } catch (const ToolError&) {
            // The run fails for another reason, which is told.
        }
    }
    mEncoder.reset();
    makePlain();
    mOutput.close();
    if (!mHasAudio) {
        mOutput.remove();
    }
}

void AudioWriter::fail(int errorNumber) const {
    throw ToolError(mPath + ": writing failed" +
                    (errorNumber ? ": " + std::string(strerror(errorNumber)) : std::string()) +
                    "; make room or choose another place with -o");
}

}  // namespace android
