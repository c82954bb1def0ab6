#include "processor/Resampler.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

// A stage between two rings, fed like a stream in steady flow.
struct ResamplerRig {
    ResamplerRig(uint32_t srcRateHz, uint32_t dstRateHz, size_t inFrameCount, size_t outFrameCount)
        : stage(new Resampler(srcRateHz, dstRateHz, AUDIO_FORMAT_PCM_16_BIT,
                              AUDIO_CHANNEL_OUT_STEREO)),
          in(makeBuffer(inFrameCount)),
          out(makeBuffer(outFrameCount)) {
        stage->setInputBuffer(in);
        stage->setOutputBuffer(out);
    }
    // Noise, the same frame by frame however it is fed.
    void feed(size_t frameCount) {
        for (; frameCount > 0; --frameCount) {
            uint64_t bits = ++written * 0x9E3779B97F4A7C15U;
            bits ^= bits >> 29;
            const uint32_t frame = static_cast<uint32_t>(bits) & 0x3FFF3FFF;
            in->write(&frame, 1);
        }
    }
    void fill() { feed(in->availableToWrite()); }
    // The frames of one pull, taken out of the output ring.
    std::vector<uint32_t> pull(size_t frameCount) {
        EXPECT_GE(stage->process(frameCount), 0);
        return drain<uint32_t>(*out);
    }

    const sp<Resampler> stage;
    const sp<FrameBuffer> in;
    const sp<FrameBuffer> out;
    uint64_t written = 0;
};

size_t inputFor(size_t frameCount, uint32_t src, uint32_t dst) {
    return (frameCount * src + dst - 1) / dst;
}

std::vector<uint32_t> pullAtOnce(uint32_t src, uint32_t dst, size_t frameCount) {
    ResamplerRig whole(src, dst, inputFor(frameCount, src, dst) + 8, frameCount);
    whole.fill();
    return whole.pull(frameCount);
}

TEST(ResamplerStage, InSteadyFlowNoBlockEverComesShortWhateverTheRings) {
    constexpr uint32_t kRatesHz[] = {8000,  11025, 12000, 16000, 22050, 24000,
                                     32000, 44100, 48000, 88200, 96000, 192000};
    std::minstd_rand random(3);
    LogCapture log;
    size_t total = 0;
    for (const uint32_t src : kRatesHz) {
        for (const uint32_t dst : kRatesHz) {
            if (src == dst) {
                continue;
            }
            const size_t block = dst == 44100 ? 900 : dst / 50;
            const size_t need = inputFor(block, src, dst);
            // From rings that just hold a block to rings of three, odd sizes among them.
            for (const size_t slack : {size_t{0}, size_t{1}, random() % need, need + 1, 2 * need}) {
                ResamplerRig rig(src, dst, need + slack, block + random() % (2 * block));
                for (int cycle = 0; cycle < 150; ++cycle) {
                    rig.fill();
                    const size_t delivered = rig.pull(block).size();
                    ASSERT_EQ(block, delivered)
                        << src << " to " << dst << ", slack " << slack << ", cycle " << cycle;
                    total += delivered;
                }
            }
        }
    }
    // Small rings out of step: both regions of either take every length within few pulls.
    for (const auto& [src, dst] :
         {std::pair{96000U, 48000U}, {48000U, 16000U}, {48000U, 44100U}, {8000U, 48000U}}) {
        ResamplerRig rig(src, dst, inputFor(50, src, dst) + 1, 53);
        for (int cycle = 0; cycle < 1500; ++cycle) {
            rig.fill();
            ASSERT_EQ(50U, rig.pull(50).size()) << src << " to " << dst << ", cycle " << cycle;
        }
    }
    EXPECT_EQ(std::vector<std::string>(), log.messages());
    EXPECT_GT(total, 50'000'000U);
}

TEST(ResamplerStage, DeliversWhatOneLongPullDelivers) {
    constexpr uint32_t kPairsHz[][2] = {{48000, 44100}, {44100, 48000}, {96000, 48000},
                                        {8000, 48000},  {44100, 8000},  {44101, 48000}};
    for (const auto& [src, dst] : kPairsHz) {
        std::minstd_rand random(9);
        const std::vector<uint32_t> expected = pullAtOnce(src, dst, 20'000);
        ASSERT_EQ(20'000U, expected.size());
        ResamplerRig cut(src, dst, 1999, 701);
        std::vector<uint32_t> actual;
        while (actual.size() < expected.size()) {
            cut.fill();
            const std::vector<uint32_t> frames = cut.pull(1 + random() % 300);
            ASSERT_FALSE(frames.empty());
            actual.insert(actual.end(), frames.begin(), frames.end());
        }
        actual.resize(expected.size());
        EXPECT_EQ(expected, actual) << src << " to " << dst;
    }
}

TEST(ResamplerStage, StarvedItTakesWhatThereIsFeedsNothingTwiceAndGoesOn) {
    for (const auto& [src, dst] : {std::pair{96000U, 48000U}, {48000U, 8000U}, {48000U, 44100U}}) {
        SCOPED_TRACE(testing::Message() << src << " to " << dst);
        LogCapture log;
        std::vector<uint32_t> expected = pullAtOnce(src, dst, 6000);
        // One frame at a time, far more output asked for than that gives.
        ResamplerRig starved(src, dst, 64, 64);
        std::vector<uint32_t> actual;
        while (starved.written < 6000) {
            starved.feed(1);
            const std::vector<uint32_t> frames = starved.pull(40);
            actual.insert(actual.end(), frames.begin(), frames.end());
            ASSERT_EQ(0U, starved.in->availableToRead()) << "a frame stalls";
        }
        EXPECT_GT(log.count("W resampler: resample, fail to resample: status 0, count 0"), 0U);
        ASSERT_GT(actual.size(), size_t{6000} * dst / src - 50);
        // One pull refills the reserve and may come short by it, no later one does.
        for (int cycle = 0; cycle < 20; ++cycle) {
            starved.fill();
            const std::vector<uint32_t> frames = starved.pull(8);
            ASSERT_TRUE(cycle == 0 || frames.size() == 8);
            actual.insert(actual.end(), frames.begin(), frames.end());
        }
        const size_t common = std::min(actual.size(), expected.size());
        actual.resize(common);
        expected.resize(common);
        EXPECT_EQ(expected, actual);
    }
}

TEST(ResamplerStage, IsNotReadyWithoutAPlatformResamplerOrABuffer) {
    LogCapture log;
    ResamplerRig refused(3999, 48000, 4, 4);
    EXPECT_FALSE(refused.stage->isCreated());
    EXPECT_EQ(-ENODEV, refused.stage->process(1));
    uint32_t frame = 0;
    EXPECT_EQ(0, refused.stage->resample(&frame, 1, makeBuffer(4)));
    EXPECT_EQ(-EINVAL, refused.stage->resample(&frame, 1, nullptr));
    refused.stage->setInputBuffer(nullptr);
    EXPECT_EQ(-ENODEV, refused.stage->process(1));
    EXPECT_EQ((std::vector<std::string>{
                  "E resampler: process, AudioResampler is not created yet",
                  "E resampler: process, output buffer or input buffer is not ready"}),
              log.messages());
    // A refusing output ends the call with what was done, an empty input with nothing.
    ResamplerRig rig(48000, 44100, 64, 8);
    EXPECT_TRUE(rig.pull(8).empty());
    rig.fill();
    EXPECT_EQ(8, rig.stage->process(30));
    EXPECT_EQ(980U, rig.stage->getInputFramesRequired(900)) << "979.6, rounded up";
}

}  // namespace
