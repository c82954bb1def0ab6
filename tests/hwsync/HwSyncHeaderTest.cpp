#include <gtest/gtest.h>

#include "hwsync/HwSyncHeaderV1.h"
#include "hwsync/HwSyncHeaderV2.h"
#include "tests/support/Bursts.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr uint64_t kPtsNs = 0xFEDCBA9876543210;
constexpr uint32_t kByteCount = 0xF0001000;
const std::string kNoSpace = "W hwsync_parser: parse, no available space to store header, bytes ";

int feed(HwSyncHeaderBase& header, Bytes bytes) {
    return header.parse(bytes.data(), bytes.size());
}

void expectDecoded(const HwSyncHeaderBase& header, hw_sync_mode_t mode) {
    EXPECT_TRUE(header.isHeaderEnded());
    EXPECT_EQ(mode, header.mMode);
    EXPECT_EQ(kByteCount, header.mBurstSize);
    EXPECT_EQ(kPtsNs, header.mTimestamp);
}

TEST(HwSyncHeader, TheFirstVersionKnowsItsMagicsAndTakesSixteenBytes) {
    LogCapture log;
    HwSyncHeaderV1 header;
    EXPECT_EQ(HW_SYNC_MODE_AV_SYNC, header.parseMode("\x55\x55\0\1"));
    EXPECT_EQ(HW_SYNC_MODE_INVALID, header.parseMode("\x55\x55\0\2"));
    EXPECT_FALSE(header.isHwSyncHeader("\x55\x66\0\1"));
    EXPECT_EQ(7, feed(header, {0x66, 0x66, 0, 1, 0xF0, 0, 0x10}));
    EXPECT_EQ(-1, feed(header, {}));
    EXPECT_FALSE(header.isHeaderEnded());
    EXPECT_EQ(9, feed(header, {0, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10, 0xAA, 0xAA}));
    expectDecoded(header, HW_SYNC_MODE_FREE_RUN);
    EXPECT_EQ(-1, feed(header, Bytes(24)));
    EXPECT_EQ((std::vector{kNoSpace + "0", kNoSpace + "24"}), log.messages());
    header.reset();
    EXPECT_FALSE(header.isHeaderEnded());
    EXPECT_EQ(kPtsNs, header.mTimestamp) << "the last header's values stay";
}

TEST(HwSyncHeader, TheSecondVersionCountsAnExtensionOfFourGigabytes) {
    HwSyncHeaderV2 header;
    const Bytes wire = Header{kPtsNs, kByteCount, 0x66660002, 0xFFFFFFFF}.bytes();
    ASSERT_EQ(20, feed(header, wire));
    Bytes extension(1 << 20);
    uint64_t taken = 20;
    while (!header.isHeaderEnded() && taken <= 0xFFFFFFFF) {
        taken += static_cast<uint64_t>(header.parse(extension.data(), extension.size()));
    }
    EXPECT_EQ(0xFFFFFFFFU, taken);
    expectDecoded(header, HW_SYNC_MODE_FREE_RUN);
    header.reset();
    EXPECT_EQ(0U, header.mBurstSize);
    EXPECT_EQ(0U, header.mTimestamp);
    EXPECT_EQ(HW_SYNC_MODE_FREE_RUN, header.mMode) << "stays until the next header";
}

TEST(HwSyncHeader, SurvivesAWrongMagicAndAMissingStore) {
    LogCapture log;
    HwSyncHeaderV2 wrongMagic;
    EXPECT_EQ(20, feed(wrongMagic, Header{kPtsNs, kByteCount, 0x77770002}.bytes()));
    expectDecoded(wrongMagic, HW_SYNC_MODE_AV_SYNC);
    const auto fail = [](size_t, size_t) -> void* { return nullptr; };
    EXPECT_EQ(-1, feed(*sp(new HwSyncHeaderV1(fail)), Bytes(16)));
    EXPECT_EQ(-1, feed(*sp(new HwSyncHeaderV2(fail)), Bytes(20)));
    EXPECT_EQ((std::vector<std::string>{
                  "E hwsync_parser: parse, Invalid tunnel mode", kNoSpace + "16",
                  "E hwsync_parser: HwSyncHeaderV2, fail to calloc", kNoSpace + "20"}),
              log.messages());
}

}  // namespace
