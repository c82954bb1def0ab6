#include "tools/replay/TunnelLog.h"

#include <gtest/gtest.h>

#include "avsync/AVSyncClock.h"
#include "stream/TunnelStream.h"
#include "tests/support/Bursts.h"
#include "tools/host/LogSink.h"

namespace android {
namespace {

constexpr size_t kFrameBytes = 4;
constexpr uint32_t kRateHz = 48000;
using Kind = TunnelLog::Line::Kind;

std::vector<TunnelLog::Line> writeBurst(TunnelStream& stream, TunnelLog& log, uint64_t ptsMs,
                                        size_t frameCount) {
    const Bytes burst = makeBurst({.ptsNs = ptsMs * 1'000'000}, Bytes(frameCount * kFrameBytes, 1));
    EXPECT_EQ(static_cast<int>(burst.size()), stream.write(burst.data(), burst.size()));
    return log.take();
}

// The words come from the stream itself: one that changes them fails here.
TEST(TunnelLog, ReadsTheCorrectionsOfARealStream) {
    setLogLevel("silent");
    AVSyncClock::setTimeSource([]() -> nsecs_t { return 1; });  // it stands still
    const sp<AVSyncClock> clock = AVSyncClock::forId(77);
    const sp<TunnelStream> stream =
        new TunnelStream(kRateHz, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                         AUDIO_OUTPUT_FLAG_HW_AV_SYNC, kRateHz);
    ASSERT_EQ(OK, stream->config(kRateHz, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO));
    stream->setParameters("hw_av_sync=77");
    stream->open();
    TunnelLog log;

    EXPECT_TRUE(writeBurst(*stream, log, 1000, 960).empty());
    const auto leadMs = [&](uint64_t ptsMs) {
        return static_cast<int64_t>(ptsMs) - static_cast<int64_t>(clock->positionNs() / 1'000'000);
    };

    clock->jumpNs(-600'000'000);
    const int64_t silenceMs = leadMs(1020);
    const auto silence = writeBurst(*stream, log, 1020, 960);
    ASSERT_EQ(1u, silence.size());
    EXPECT_EQ(Kind::SILENCE, silence[0].kind);
    EXPECT_EQ(silenceMs, silence[0].ms);
    EXPECT_EQ(silenceMs * kRateHz / 1000 * int64_t{kFrameBytes}, silence[0].byteCount);

    clock->jumpNs(840'000'000);
    const int64_t dropMs = -leadMs(1040);
    const auto drop = writeBurst(*stream, log, 1040, 960);
    ASSERT_EQ(2u, drop.size());
    EXPECT_EQ(Kind::DROP, drop[0].kind);
    EXPECT_EQ(dropMs, drop[0].ms);
    EXPECT_EQ(Kind::DROPPED, drop[1].kind);
    EXPECT_EQ(int64_t{960} * int64_t{kFrameBytes}, drop[1].byteCount);

    // Nobody takes frames, so the rest of a second's worth finds no room.
    const auto missed = writeBurst(*stream, log, clock->positionNs() / 1'000'000, kRateHz);
    ASSERT_FALSE(missed.empty());
    EXPECT_EQ(Kind::MISSED, missed.back().kind);
    EXPECT_LT(0, missed.back().byteCount);
    stream->flush();
    stream->close();
    AVSyncClock::setTimeSource(nullptr);
}

}  // namespace
}  // namespace android
