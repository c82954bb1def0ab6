#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace android {

/** How audio that can't be read here is brought in nevertheless. */
constexpr const char* kConvertByPipe =
    "pipe it through ffmpeg: ffmpeg -v error -i FILE -f wav - | streamproxy mix - -o OUTPUT";

/** What a file begins with: enough for the functions below. */
constexpr size_t kBeginningByteCount = 64;

/** A container that libsndfile lacks, such as "WMA"; empty: none that is known. */
std::string foreignContainerOf(const std::vector<uint8_t>& beginning);

/** The same, and streams without a container, whose signs are so short that samples may have them. */
std::string foreignFormatOf(const std::vector<uint8_t>& beginning);

/** The sign of an audio file that libsndfile reads, such as "fLaC"; empty: none. */
std::string audioSignOf(const std::vector<uint8_t>& beginning);

/** Opus in Ogg, which libsndfile reads only in part. */
bool isOpus(const std::vector<uint8_t>& beginning);

}  // namespace android
