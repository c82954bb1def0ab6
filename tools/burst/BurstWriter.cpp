#include "tools/burst/BurstWriter.h"

#include <fmt/format.h>

#include <cstring>

#include "tools/burst/Burst.h"
#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr int64_t kMaxGarbageByteCount = 4096;
// The cut is after the magic and the size. A header cut earlier would take its size from the bytes
// that follow, and could swallow the rest of the stream.
constexpr size_t kCutHeaderByteCount = 8;

void appendBigEndian(std::vector<uint8_t>& bytes, uint64_t value, int byteCount) {
    for (int i = byteCount - 1; i >= 0; --i) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

}  // namespace

BurstWriter::BurstWriter(const std::string& path, uint32_t extensionByteCount, SeededRandom& random)
    : mPath(path), mExtensionByteCount(extensionByteCount), mRandom(random), mOutput(path) {}

void BurstWriter::write(const PackPlan::Item& item, const std::vector<uint8_t>& payload) {
    mBytes.clear();
    if (item.fault == Fault::NONE) {
        appendHeader(item, 2, static_cast<uint32_t>(payload.size()));
        mBytes.insert(mBytes.end(), payload.begin(), payload.end());
    } else {
        const std::string detail = spoil(item, payload);
        mFaults.push_back(
            {.fault = item.fault, .item = mItemCount, .offset = mByteCount, .detail = detail});
    }
    flush();
    ++mItemCount;
}

void BurstWriter::appendHeader(const PackPlan::Item& item, uint32_t version,
                               uint32_t payloadByteCount) {
    appendBigEndian(mBytes, (item.isFreeRun ? 0x66660000u : 0x55550000u) | version, 4);
    appendBigEndian(mBytes, payloadByteCount, 4);
    appendBigEndian(mBytes, item.ptsNs, 8);
    if (version == 2) {
        appendBigEndian(mBytes, Burst::kFixedHeaderByteCount + mExtensionByteCount, 4);
        appendGarbage(mExtensionByteCount);
    }
}

/** Writes the burst with its fault, and describes the fault for people. */
std::string BurstWriter::spoil(const PackPlan::Item& item, const std::vector<uint8_t>& payload) {
    const auto byteCount = static_cast<uint32_t>(payload.size());
    switch (item.fault) {
        case Fault::GARBAGE: {
            const int64_t garbage = mRandom.between(1, kMaxGarbageByteCount);
            appendGarbage(garbage);
            appendHeader(item, 2, byteCount);
            mBytes.insert(mBytes.end(), payload.begin(), payload.end());
            return fmt::format("{} bytes in front of the header", garbage);
        }
        case Fault::CUT_HEADER:
            appendHeader(item, 2, byteCount);
            mBytes.resize(kCutHeaderByteCount);
            return fmt::format("{} bytes of the header and no payload", kCutHeaderByteCount);
        case Fault::WRONG_SIZE: {
            // At least half of it is missing, so that the timestamps show it too.
            const auto announced = static_cast<uint32_t>(mRandom.between(0, byteCount / 2));
            appendHeader(item, 2, announced);
            mBytes.insert(mBytes.end(), payload.begin(), payload.end());
            return fmt::format("announces {} of {} bytes", announced, byteCount);
        }
        case Fault::ABSURD_SIZE: {
            const auto announced =
                static_cast<uint32_t>(mRandom.between(Burst::kAbandonedByteCount, UINT32_MAX));
            appendHeader(item, 2, announced);
            mBytes.insert(mBytes.end(), payload.begin(), payload.end());
            return fmt::format("announces {} bytes", announced);
        }
        case Fault::VERSION_1:
            appendHeader(item, 1, byteCount);
            mBytes.insert(mBytes.end(), payload.begin(), payload.end());
            return "a header of 16 bytes";
        case Fault::NONE:
            break;
    }
    return {};
}

// Leaves out the bytes of a magic's mode, so that no magic appears by chance.
void BurstWriter::appendGarbage(int64_t byteCount) {
    for (int64_t i = 0; i < byteCount; ++i) {
        const auto byte = static_cast<uint8_t>(mRandom.between(0, 255));
        mBytes.push_back(byte == 0x55 || byte == 0x66 ? uint8_t{0xAA} : byte);
    }
}

void BurstWriter::flush() {
    const auto byteCount = static_cast<sf_count_t>(mBytes.size());
    if (OutputFile::io()->write(mBytes.data(), byteCount, &mOutput) != byteCount ||
        mOutput.error() != 0) {
        fail(mOutput.error());
    }
    mByteCount += mBytes.size();
}

void BurstWriter::finish() {
    const int errorNumber = mOutput.close();
    if (errorNumber != 0) {
        fail(errorNumber);
    }
}

void BurstWriter::abandon() {
    mOutput.close();
    mOutput.remove();
}

void BurstWriter::fail(int errorNumber) const {
    throw ToolError(mPath + ": writing failed: " + strerror(errorNumber) +
                    "; make room or choose another place with -o");
}

}  // namespace android
