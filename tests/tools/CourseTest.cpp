#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tools/burst/TimestampTrend.h"
#include "tools/course/DecisionRun.h"
#include "tools/course/HeardLeads.h"
#include "tools/course/Moments.h"

namespace android {
namespace {

// Two hours of 20 ms bursts.
constexpr uint64_t kBurstCount = 360'000;
constexpr double kBurstSec = 0.02;

TEST(Course, DecisionsOfTwoHoursComeBackAsTheyWere) {
    DecisionLog log;
    for (uint64_t i = 0; i < kBurstCount; ++i) {
        log.add({.timeNs = static_cast<int64_t>(i) * 20'000'000,
                 .burstIndex = i,
                 .ptsNs = i * 3,
                 .hasClock = true,
                 .clockNs = i,
                 .kind = i % 1000 == 999 ? SyncDecision::Kind::DROP : SyncDecision::Kind::NONE});
        // It is heard a buffer's length later.
        if (i >= 100) {
            log.setHeard(i - 100, static_cast<int64_t>(i));
        }
    }
    ASSERT_EQ(kBurstCount, log.size());
    uint64_t index = 0;
    for (const SyncDecision& decision : log) {
        ASSERT_EQ(index, decision.burstIndex);
        ASSERT_EQ(static_cast<int64_t>(2 * index), decision.leadNs());
        ASSERT_EQ(index < kBurstCount - 100, decision.isHeard) << index;
        if (decision.isHeard) {
            ASSERT_EQ(static_cast<int64_t>(index) + 100, decision.heardLeadNs);
        }
        ++index;
    }
    size_t runCount = 0;
    uint64_t burstCount = 0;
    DecisionRun::forEach(log, [&](const DecisionRun& run) {
        ++runCount;
        burstCount += run.count();
    });
    EXPECT_EQ(2 * kBurstCount / 1000, runCount);
    EXPECT_EQ(kBurstCount, burstCount);
}

TEST(Course, NoMomentIsLostHoweverManyThereAre) {
    Moments moments;
    for (uint64_t i = 0; i < kBurstCount; ++i) {
        moments.add(static_cast<double>(i) * kBurstSec, i == 1234 ? -7.0 : 1.0);
    }
    EXPECT_LE(moments.columns().size(), 4096u);
    int64_t count = 0;
    double worst = 0;
    double beforeSec = -1;
    for (const Moments::Column& column : moments.columns()) {
        count += column.count;
        if (column.count > 0) {
            worst = std::abs(column.worst()) > std::abs(worst) ? column.worst() : worst;
            EXPECT_GT(column.firstSec, beforeSec);
            beforeSec = column.lastSec;
        }
    }
    EXPECT_EQ(static_cast<int64_t>(kBurstCount), count);
    EXPECT_EQ(-7.0, worst);
    EXPECT_NEAR(static_cast<double>(kBurstCount - 1) * kBurstSec, beforeSec, 1e-9);
}

TEST(Course, HeardTimeIsThatBeyondEachRange) {
    HeardLeads heard(LeadRange{.earlyMs = 10, .lateMs = -10});
    // On a bound is not beyond it.
    for (const double leadMs : {-200.0, -185.0, -125.0, -10.0, 0.0, 45.0, 46.0, 90.0, 91.0}) {
        heard.add({.index = 0, .timeSec = 0, .leadMs = leadMs, .durationSec = 1});
    }
    const auto expect = [](double earlySec, double lateSec, const HeardLeads::Beyond& beyond) {
        EXPECT_EQ(earlySec, beyond.earlySec);
        EXPECT_EQ(lateSec, beyond.lateSec);
    };
    expect(3, 2, heard.beyondDetectability());
    expect(1, 1, heard.beyondAcceptability());
    expect(4, 3, *heard.beyondLimit());
    EXPECT_EQ(-200, heard.worst()->leadMs);
    EXPECT_EQ(9, heard.measuredSec());
}

TEST(TimestampTrend, DriftAndJitterOfHoursAreFoundInASample) {
    TimestampTrend trend;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitterNs(-3e6, 3e6);
    int64_t jumpNs = 0;
    for (uint64_t i = 0; i < kBurstCount; ++i) {
        // Gaps of more than what an hour's drift makes.
        if (i % 20'000 == 0) {
            trend.breakOff();
            jumpNs += 1'000'000'000;
        }
        const auto payloadNs = static_cast<int64_t>(i) * 20'000'000;
        trend.add(payloadNs, jumpNs + payloadNs / 10'000 + std::llround(jitterNs(random)));
    }
    const TimestampTrend::Result result = trend.result();
    ASSERT_TRUE(result.isKnown);
    EXPECT_NEAR(100, result.driftPpm, 0.2);
    EXPECT_LT(result.errorPpm, 0.1);
    EXPECT_NEAR(720e6, static_cast<double>(result.driftNs), 2e6);
    EXPECT_NEAR(3e6 / std::sqrt(3), static_cast<double>(result.jitterRmsNs), 2e4);
    EXPECT_NEAR(2.85e6, static_cast<double>(result.jitter95Ns), 2e4);
}

}  // namespace
}  // namespace android
