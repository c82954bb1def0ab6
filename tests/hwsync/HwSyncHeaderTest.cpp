#include <gtest/gtest.h>

#include "hwsync/HwSyncHeaderV1.h"
#include "hwsync/HwSyncHeaderV2.h"
#include "tests/support/Bursts.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

int feed(HwSyncHeaderBase& header, Bytes bytes) {
    return header.parse(bytes.data(), bytes.size());
}

TEST(HwSyncHeader, TheFirstVersionKnowsItsMagicsAndTakesSixteenBytes) {
    LogCapture log;
    HwSyncHeaderV1 header;
    EXPECT_EQ(HW_SYNC_MODE_AV_SYNC, header.parseMode("\x55\x55\0\1"));
    EXPECT_EQ(HW_SYNC_MODE_INVALID, header.parseMode("\x55\x55\0\2"));
    EXPECT_FALSE(header.isHwSyncHeader("\x55\x66\0\1"));
    EXPECT_EQ(7, feed(header, {0x66, 0x66, 0, 1, 0xF0, 0, 0x10}));
    EXPECT_FALSE(header.isHeaderEnded());
    EXPECT_EQ(9, feed(header, {0, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10, 0xAA, 0xAA}));
    EXPECT_TRUE(header.isHeaderEnded());
    EXPECT_EQ(HW_SYNC_MODE_FREE_RUN, header.mMode);
    EXPECT_EQ(0xF0001000, header.mBurstSize);
    EXPECT_EQ(-1, feed(header, Bytes(24)));
    header.reset();
    EXPECT_FALSE(header.isHeaderEnded());
    EXPECT_EQ(0xFEDCBA9876543210, header.mTimestamp) << "the last header's values stay";
    HwSyncHeaderV1 withoutStore([](size_t, size_t) -> void* { return nullptr; });
    EXPECT_EQ(-1, feed(withoutStore, Bytes(16)));
    const std::string noSpace =
        "W hwsync_parser: parse, no available space to store header, bytes ";
    EXPECT_EQ((std::vector{noSpace + "24", noSpace + "16"}), log.messages());
}

TEST(HwSyncHeader, TheSecondVersionCountsAnExtensionOfFourGigabytes) {
    HwSyncHeaderV2 header;
    ASSERT_EQ(20, feed(header, Header{7, 8, 0x66660002, 0xFFFFFFFF}.bytes()));
    Bytes extension(1 << 20);
    uint64_t taken = 20;
    while (!header.isHeaderEnded() && taken <= 0xFFFFFFFF) {
        taken += static_cast<uint64_t>(header.parse(extension.data(), extension.size()));
    }
    EXPECT_EQ(0xFFFFFFFFU, taken);
    EXPECT_EQ(7U, header.mTimestamp);
    header.reset();
    EXPECT_EQ(0U, header.mTimestamp);
    EXPECT_EQ(HW_SYNC_MODE_FREE_RUN, header.mMode) << "stays until the next header";
}

TEST(HwSyncHeader, TheSecondVersionWarnsOncePerCorruptHeader) {
    constexpr uint32_t kAvSync = 0x55550002;
    constexpr uint32_t kMaxOffset = 65536;
    constexpr uint32_t kMaxBurst = 16777216;
    LogCapture log;
    HwSyncHeaderV2 header;
    const auto take = [&](const Header& fields, size_t pieceByteCount) {
        header.reset();
        Bytes wire = fields.bytes();
        wire.resize(40);
        for (size_t at = 0; at < wire.size() && !header.isHeaderEnded(); at += pieceByteCount) {
            feed(header, Bytes(&wire[at], &wire[at] + pieceByteCount));
        }
    };
    take({1, kMaxBurst, kAvSync, kMaxOffset}, 20);
    EXPECT_TRUE(log.messages().empty());
    const std::string warning = "W hwsync_parser: parse, the header looks corrupt: payload offset ";
    std::vector<std::string> expected;
    for (const size_t pieceByteCount : {1, 4, 20}) {
        take({1, kMaxBurst + 1, kAvSync, 28}, pieceByteCount);
        expected.push_back(warning + "28, burst size 16777217, timestamp 1");
        // The extension does not end here, and comes in pieces.
        take({~0ULL, 7, kAvSync, kMaxOffset + 1}, pieceByteCount);
        expected.push_back(warning + "65537, burst size 7, timestamp 18446744073709551615");
        take({2, ~0U, kAvSync, ~0U}, pieceByteCount);
        expected.push_back(warning + "4294967295, burst size 4294967295, timestamp 2");
    }
    EXPECT_EQ(expected, log.messages());
}

}  // namespace
