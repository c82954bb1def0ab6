#include "tools/burst/PackPlan.h"

#include <gtest/gtest.h>

#include "tools/process/ToolError.h"

namespace android {
namespace {

PackPlan planOf(const PackPlan::Config& config, uint64_t seed = 1) {
    SeededRandom random(seed);
    return {config, random};
}

TEST(PackPlan, GapsLeaveOutWholeBurstsAndTheLastOneIsCut) {
    const PackPlan plan = planOf({.rateHz = 1000,
                                  .frameCount = 1050,
                                  .burstFrameCount = 100,
                                  .firstPtsNs = 5,
                                  .gaps = {{.beginNs = 150'000'000, .endNs = 301'000'000}},
                                  .freeRuns = {{.beginNs = 900'000'000, .endNs = 950'000'000}},
                                  .wishes = {}});
    const std::vector<PackPlan::Item>& items = plan.items();
    ASSERT_EQ(9u, items.size()) << "those that begin at 200 and 300 ms are missing";
    EXPECT_EQ(100, items[1].beginFrame);
    EXPECT_EQ(400, items[2].beginFrame);
    EXPECT_EQ(400'000'005u, items[2].ptsNs);
    EXPECT_TRUE(items[7].isFreeRun);
    EXPECT_FALSE(items[8].isFreeRun);
    EXPECT_EQ(50, items[8].frameCount);
    EXPECT_THROW(planOf({.rateHz = 1000,
                         .frameCount = 100,
                         .burstFrameCount = 100,
                         .gaps = {{.beginNs = 0, .endNs = 1}},
                         .freeRuns = {},
                         .wishes = {}}),
                 ToolError);
}

TEST(PackPlan, FaultsKeepTheirDistanceAndTheSeedDecides) {
    PackPlan::Config config = {
        .rateHz = 1000,
        .frameCount = 4000,
        .burstFrameCount = 100,
        .jitterNs = 3'000'000,
        .gaps = {},
        .freeRuns = {},
        .wishes = {{.fault = Fault::GARBAGE, .count = 5}, {.fault = Fault::VERSION_1, .count = 5}}};
    const auto faultsOf = [&](uint64_t seed) {
        const PackPlan plan = planOf(config, seed);
        std::vector<std::pair<size_t, Fault>> faults;
        for (size_t i = 0; i < plan.items().size(); ++i) {
            const PackPlan::Item& item = plan.items()[i];
            EXPECT_NEAR(static_cast<double>(item.beginFrame) * 1e6, static_cast<double>(item.ptsNs),
                        3e6);
            if (item.fault != Fault::NONE) {
                faults.emplace_back(i, item.fault);
            }
        }
        return faults;
    };
    const auto faults = faultsOf(7);
    ASSERT_EQ(10u, faults.size());
    EXPECT_LT(2u, faults.front().first);
    EXPECT_GT(37u, faults.back().first);
    for (size_t i = 1; i < faults.size(); ++i) {
        EXPECT_LE(3u, faults[i].first - faults[i - 1].first);
    }
    EXPECT_EQ(faults, faultsOf(7));
    EXPECT_NE(faults, faultsOf(8));
    config.wishes[0].count = 40;
    EXPECT_THROW(planOf(config), ToolError);
}

}  // namespace
}  // namespace android
