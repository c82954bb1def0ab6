#include "hwsync/HwSyncDefaultPolicy.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <limits>
#include <thread>

#include "cutils/properties.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr unsigned long kNsPerMs = 1'000'000;
constexpr long kUntouched = -77;

using Decision = std::pair<int, long>;
using Texts = std::array<const char*, 4>;
using Bounds = std::array<int64_t, 4>;  // ms: audio threshold and upper bound, then video's

void setProperties(const Texts& texts) {
    property_set("vendor.audio.hwsync.alead.threshold", texts[0]);
    property_set("vendor.audio.hwsync.alead.upper", texts[1]);
    property_set("vendor.audio.hwsync.vlead.threshold", texts[2]);
    property_set("vendor.audio.hwsync.vlead.upper", texts[3]);
}

Decision decide(HwSyncPolicy& policy, unsigned long audioNs, unsigned long syncNs) {
    long durationMs = kUntouched;
    const int code = policy.determine(audioNs, syncNs, durationMs);
    return {code, durationMs};
}

Decision expected(int64_t audioLeadMs, const Bounds& bounds) {
    const size_t side = audioLeadMs > 0 ? 0 : 2;
    const int64_t leadMs = audioLeadMs > 0 ? audioLeadMs : -audioLeadMs;
    if (leadMs > bounds[side + 1]) {
        return {1, kUntouched};
    }
    return leadMs > bounds[side] ? Decision{side == 0 ? 2 : 3, leadMs} : Decision{0, kUntouched};
}

TEST(HwSyncDefaultPolicy, CorrectsBetweenItsBoundsToTheMillisecond) {
    constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
    constexpr int64_t kLastMs = 18'446'744'073'709;  // with 551,615 ns more, the last of 64 bits
    const std::pair<Texts, Bounds> cases[] = {
        {{"", "", "", ""}, {300, 1000, 100, 1000}},
        {{"500", "400", "5", "50"}, {500, 400, 5, 50}},  // no room between audio's bounds
        {{"none", "0", "7ms", " 9"}, {0, 0, 7, 9}},
        {{"-1", "-1", "0", "-1"}, {kNever, kNever, 0, kNever}},
    };
    for (const auto& [texts, bounds] : cases) {
        setProperties(texts);
        HwSyncDefaultPolicy policy;
        setProperties({"", "", "", ""});
        for (const int64_t syncMs : {int64_t{0}, int64_t{10'000}, kLastMs}) {
            for (int64_t lead = -1100; lead <= 1100; ++lead) {
                if (syncMs + lead < 0 || syncMs + lead > kLastMs) {
                    continue;
                }
                const auto audioNs = static_cast<unsigned long>(syncMs + lead) * kNsPerMs;
                const auto syncNs = static_cast<unsigned long>(syncMs) * kNsPerMs;
                ASSERT_EQ(expected(lead, bounds), decide(policy, audioNs + 551'615, syncNs));
                ASSERT_EQ(expected(lead, bounds), decide(policy, audioNs, syncNs + 551'615));
            }
        }
    }
}

TEST(HwSyncDefaultPolicy, AfterAStartWaitsForTheLatencyAndAnchorsOnce) {
    LogCapture log;
    HwSyncDefaultPolicy policy;
    EXPECT_EQ(Decision(2, 500), decide(policy, 500 * kNsPerMs, 0)) << "no start is pending";
    policy.setLatency(20'000'000);
    policy.setLatency(20'900'000);
    policy.setLatency(200'000'000);
    EXPECT_EQ(Decision(0, kUntouched), decide(policy, 199'999'999, 5000 * kNsPerMs));
    EXPECT_EQ(Decision(1, kUntouched), decide(policy, 200'000'000, 200'000'000));
    EXPECT_EQ(Decision(3, 150), decide(policy, 0, 150 * kNsPerMs)) << "tracking, even below it";
    policy.setLatency(200'000'001);
    EXPECT_EQ(Decision(3, 150), decide(policy, 0, 150 * kNsPerMs)) << "the same milliseconds";
    policy.setFirstPts();
    policy.setFirstPts();
    EXPECT_EQ(Decision(1, kUntouched), decide(policy, 300 * kNsPerMs, 0));
    EXPECT_EQ(Decision(0, kUntouched), decide(policy, 300 * kNsPerMs, 300 * kNsPerMs));
    EXPECT_EQ(1U, log.count("W hwsync_policy: determine, audio PTS(199ms) is less than audio "
                            "latency(200ms), delay to update until audio PTS catches up latency"));
    EXPECT_EQ(4U, log.messages().size());
}

TEST(HwSyncDefaultPolicy, NoStartIsLostWhileTheWriterDecides) {
    LogCapture log;
    HwSyncDefaultPolicy policy;
    std::atomic<int> started{0};
    std::atomic<int> changed{0};
    std::thread control([&] {
        for (int round = 1; round <= 5000; changed = round++) {
            while (started < round) {
                std::this_thread::yield();
            }
            policy.setLatency(2 * kNsPerMs);
        }
    });
    for (int round = 1; round <= 5000; ++round) {
        policy.setLatency(1 * kNsPerMs);
        started = round;
        // Below the new latency: this may anchor for the old one, never for the new.
        while (changed < round) {
            decide(policy, 1 * kNsPerMs, 1 * kNsPerMs);
        }
        EXPECT_EQ(1, decide(policy, 2 * kNsPerMs, 2 * kNsPerMs).first) << "round " << round;
    }
    control.join();
}

}  // namespace
