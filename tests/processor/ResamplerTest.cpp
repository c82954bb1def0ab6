#include "processor/Resampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr uint32_t kStereo = AUDIO_CHANNEL_OUT_STEREO;

/** A stage between two rings, fed like a stream in steady flow. */
class ResamplerRig {
public:
    ResamplerRig(uint32_t srcRateHz, uint32_t dstRateHz, size_t inFrameCount, size_t outFrameCount)
        : mStage(new Resampler(srcRateHz, dstRateHz, k16, kStereo)),
          mIn(makeBuffer(inFrameCount)),
          mOut(makeBuffer(outFrameCount)) {
        mStage->setInputBuffer(mIn);
        mStage->setOutputBuffer(mOut);
    }

    void fill() {
        while (mIn->availableToWrite() > 0) {
            const std::vector<uint32_t> frames = signal(mWritten, mIn->availableToWrite());
            mWritten += static_cast<size_t>(mIn->write(frames.data(), frames.size()));
        }
    }
    /** The frames of one pull, taken out of the output ring. */
    std::vector<uint32_t> pull(size_t frameCount) {
        EXPECT_GE(mStage->process(frameCount), 0);
        return drain<uint32_t>(*mOut);
    }
    sp<Resampler> stage() const { return mStage; }
    FrameBuffer& in() { return *mIn; }

    /** Noise that any stretch of can be made again. */
    static std::vector<uint32_t> signal(size_t first, size_t frameCount) {
        std::vector<uint32_t> frames(frameCount);
        for (size_t i = 0; i < frameCount; ++i) {
            uint64_t bits = (first + i + 1) * 0x9E3779B97F4A7C15U;
            bits ^= bits >> 29;
            frames[i] = static_cast<uint32_t>(bits) & 0x3FFF3FFF;
        }
        return frames;
    }

private:
    sp<Resampler> mStage;
    sp<FrameBuffer> mIn;
    sp<FrameBuffer> mOut;
    size_t mWritten = 0;
};

size_t blockFrames(uint32_t rateHz) {
    return rateHz == 44100 ? 900 : rateHz / 50;
}

TEST(ResamplerStage, AsksForTheInputThatTheOutputNeedsRoundedUp) {
    const sp<Resampler> down(new Resampler(48000, 44100, k16, kStereo));
    EXPECT_EQ(960U, down->getInputFramesRequired(882));
    EXPECT_EQ(980U, down->getInputFramesRequired(900));
    EXPECT_EQ(0U, down->getInputFramesRequired(0));
    EXPECT_EQ(77U,
              sp<Resampler>(new Resampler(8000, 8000, k16, kStereo))->getInputFramesRequired(77));
    EXPECT_EQ(0U, sp<Resampler>(new Resampler(8000, 0, k16, kStereo))->getInputFramesRequired(1));
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
            const size_t block = blockFrames(dst);
            const size_t need = (block * src + dst - 1) / dst;
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
    EXPECT_EQ(std::vector<std::string>(), log.messages());
    RecordProperty("frames", std::to_string(total));
    EXPECT_GT(total, 50'000'000U);
}

TEST(ResamplerStage, DeliversWhatOneLongPullDelivers) {
    constexpr uint32_t kPairsHz[][2] = {{48000, 44100}, {44100, 48000}, {96000, 48000},
                                        {8000, 48000},  {44100, 8000},  {44101, 48000}};
    for (const auto& pair : kPairsHz) {
        std::minstd_rand random(9);
        const size_t frameCount = 20'000;
        const size_t need = (frameCount * pair[0] + pair[1] - 1) / pair[1];
        ResamplerRig whole(pair[0], pair[1], need + 8, frameCount);
        whole.fill();
        const std::vector<uint32_t> expected = whole.pull(frameCount);
        ASSERT_EQ(frameCount, expected.size());

        ResamplerRig cut(pair[0], pair[1], 1999, 701);
        std::vector<uint32_t> actual;
        while (actual.size() < frameCount) {
            cut.fill();
            const std::vector<uint32_t> frames = cut.pull(1 + random() % 300);
            ASSERT_FALSE(frames.empty());
            actual.insert(actual.end(), frames.begin(), frames.end());
        }
        actual.resize(frameCount);
        EXPECT_EQ(expected, actual) << pair[0] << " to " << pair[1];
    }
}

TEST(ResamplerStage, StarvedItTakesWhatThereIsFeedsNothingTwiceAndGoesOn) {
    const std::string warning = "W resampler: resample, fail to resample: status 0, count 0";
    for (const auto& [src, dst] : {std::pair{96000U, 48000U}, {48000U, 8000U}, {48000U, 44100U}}) {
        LogCapture log;
        const size_t total = 6000;
        ResamplerRig whole(src, dst, total, total);
        whole.fill();
        const std::vector<uint32_t> expected = whole.pull(total);

        // One frame at a time, far more output asked for than that gives.
        ResamplerRig starved(src, dst, 16, 64);
        std::vector<uint32_t> actual;
        for (size_t i = 0; i < total; ++i) {
            const uint32_t frame = ResamplerRig::signal(i, 1)[0];
            ASSERT_EQ(1, starved.in().write(&frame, 1));
            const std::vector<uint32_t> frames = starved.pull(40);
            actual.insert(actual.end(), frames.begin(), frames.end());
            ASSERT_EQ(0U, starved.in().availableToRead()) << "a frame stalls";
        }
        ASSERT_GT(actual.size(), total * dst / src - 50);
        actual.resize(std::min(actual.size(), expected.size()));
        EXPECT_EQ(std::vector<uint32_t>(expected.begin(),
                                        expected.begin() + static_cast<ptrdiff_t>(actual.size())),
                  actual);
        EXPECT_GT(log.count(warning), 0U) << src << " to " << dst;
    }
}

TEST(ResamplerStage, IsNotReadyWithoutAPlatformResamplerOrABuffer) {
    LogCapture log;
    const sp<Resampler> stage(new Resampler(3999, 48000, k16, kStereo));
    EXPECT_FALSE(stage->isCreated());
    EXPECT_EQ(-ENODEV, stage->process(1));
    stage->setInputBuffer(makeBuffer(4));
    stage->setOutputBuffer(makeBuffer(4));
    EXPECT_EQ(-ENODEV, stage->process(1));
    uint32_t frame = 0;
    EXPECT_EQ(0, stage->resample(&frame, 1, makeBuffer(4)));
    EXPECT_EQ(-EINVAL, stage->resample(&frame, 1, nullptr));
    EXPECT_EQ((std::vector<std::string>{
                  "E resampler: process, output buffer or input buffer is not ready",
                  "E resampler: process, AudioResampler is not created yet"}),
              log.messages());
    // A refusing output ends the call with what was done, an empty input with nothing.
    ResamplerRig rig(48000, 44100, 64, 8);
    EXPECT_TRUE(rig.pull(8).empty());
    rig.fill();
    EXPECT_EQ(8, rig.stage()->process(30));
}

}  // namespace
