#include "tools/audio/WavHeader.h"

#include <cstring>

namespace android {

namespace {

constexpr size_t kMaxHeaderBytes = size_t{64} << 20;  // pictures in it among others
constexpr uint16_t kPcm = 1;
constexpr uint16_t kFloat = 3;
constexpr uint16_t kExtensible = 0xfffe;

/** The bytes peeked at; what lies beyond their end is 0. */
struct Bytes {
    const std::vector<uint8_t>& bytes;

    uint64_t number(size_t at, size_t byteCount) const {
        uint64_t value = 0;
        for (size_t i = 0; i < byteCount && at + i < bytes.size(); ++i) {
            value |= uint64_t{bytes[at + i]} << (8 * i);
        }
        return value;
    }
    bool has(size_t at, const char* name) const {
        return at + 4 <= bytes.size() && memcmp(bytes.data() + at, name, 4) == 0;
    }
};

/** From the content of the chunk "fmt "; false: samples of another kind. */
bool takeFormat(const Bytes& chunk, size_t at, PipeFormat& format) {
    auto tag = static_cast<uint16_t>(chunk.number(at, 2));
    if (tag == kExtensible) {
        tag = static_cast<uint16_t>(chunk.number(at + 24, 2));  // the sub-format begins with it
    }
    const uint64_t bits = chunk.number(at + 14, 2);
    format.channelCount = static_cast<uint32_t>(chunk.number(at + 2, 2));
    format.rateHz = static_cast<uint32_t>(chunk.number(at + 4, 4));
    format.sample = tag == kFloat ? PipeFormat::Sample::F32
                    : bits == 16  ? PipeFormat::Sample::S16
                    : bits == 24  ? PipeFormat::Sample::S24
                                  : PipeFormat::Sample::S32;
    const bool isKnown =
        (tag == kPcm && (bits == 16 || bits == 24 || bits == 32)) || (tag == kFloat && bits == 32);
    return isKnown && chunk.number(at + 12, 2) == format.frameBytes();
}

/** Writers to a pipe put 0 or a size around 2^31 or 2^32 where they can't know the length. */
int64_t knownBytes(uint64_t announced) {
    constexpr uint64_t kNear = 0x10000;  // headers are subtracted from it
    const bool isKnown =
        announced >= kNear ? announced < 0x100000000 - kNear &&
                                 (announced < 0x80000000 - kNear || announced > 0x80000000 + kNear)
                           : announced > 0;
    return isKnown ? static_cast<int64_t>(announced) : -1;
}

}  // namespace

std::optional<WavHeader> WavHeader::peek(StandardInput& input) {
    const Bytes head{input.peek(12)};
    const bool isRf64 = head.has(0, "RF64");
    if (!(isRf64 || head.has(0, "RIFF")) || !head.has(8, "WAVE")) {
        return std::nullopt;
    }
    WavHeader header;
    bool hasFormat = false;
    uint64_t longBytes = 0;
    for (size_t at = 12; at < kMaxHeaderBytes;) {
        const Bytes chunk{input.peek(at + 8 + 40)};
        if (chunk.bytes.size() < at + 8) {
            return std::nullopt;
        }
        const uint64_t byteCount = chunk.number(at + 4, 4);
        const size_t content = at + 8;
        if (chunk.has(at, "data")) {
            header.headerBytes = static_cast<int64_t>(content);
            const bool isLong = isRf64 && byteCount == 0xffffffff && longBytes < INT64_MAX;
            header.audioBytes =
                isLong && longBytes > 0 ? static_cast<int64_t>(longBytes) : knownBytes(byteCount);
            return hasFormat ? std::optional(header) : std::nullopt;
        }
        if (chunk.has(at, "ds64")) {
            longBytes = chunk.number(content + 8, 8);
        }
        if (chunk.has(at, "fmt ")) {
            hasFormat = takeFormat(chunk, content, header.format);
            if (!hasFormat) {
                return std::nullopt;
            }
        }
        at = content + byteCount + byteCount % 2;  // padded to whole words
    }
    return std::nullopt;
}

}  // namespace android
