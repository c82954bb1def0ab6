#include "tools/audio/ForeignFormat.h"

#include <cstring>
#include <string_view>

namespace android {

namespace {

using std::string_view_literals::operator""sv;

bool has(const std::vector<uint8_t>& bytes, size_t at, std::string_view sign) {
    return at + sign.size() <= bytes.size() &&
           memcmp(bytes.data() + at, sign.data(), sign.size()) == 0;
}

}  // namespace

std::string foreignContainerOf(const std::vector<uint8_t>& beginning) {
    if (has(beginning, 4, "ftyp")) {
        return "MP4 (AAC and others)";
    }
    if (has(beginning, 0, "\x1a\x45\xdf\xa3"sv)) {
        return "Matroska or WebM";
    }
    if (has(beginning, 0, "\x30\x26\xb2\x75\x8e\x66\xcf\x11"sv)) {
        return "WMA";
    }
    return "";
}

std::string foreignFormatOf(const std::vector<uint8_t>& beginning) {
    const std::string container = foreignContainerOf(beginning);
    if (!container.empty()) {
        return container;
    }
    if (has(beginning, 0, "\x0b\x77"sv) || has(beginning, 0, "\x77\x0b"sv)) {
        return "AC-3";
    }
    // The sync word of ADTS, layer 0, with and without a checksum, of MPEG-4 and MPEG-2.
    const bool isAdts =
        beginning.size() > 1 && beginning[0] == 0xff && (beginning[1] & 0xf6) == 0xf0;
    return isAdts ? "AAC" : "";
}

std::string audioSignOf(const std::vector<uint8_t>& beginning) {
    for (const char* sign : {"RIFF", "RIFX", "RF64", "fLaC", "OggS", "FORM", "caff", "ID3"}) {
        if (has(beginning, 0, sign)) {
            return sign;
        }
    }
    return "";
}

bool isOpus(const std::vector<uint8_t>& beginning) {
    return has(beginning, 0, "OggS") && has(beginning, 28, "OpusHead");
}

}  // namespace android
