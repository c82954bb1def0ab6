/** The converter call by call: what it takes, what it yields, and that cuts leave no trace. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "ResamplerFixture.h"

namespace android {
namespace {

constexpr RatePair kAllKinds[] = {{48000, 44100}, {44100, 48000},  {96000, 48000}, {32000, 48000},
                                  {8000, 48000},  {48000, 8000},   {48000, 48000}, {192000, 44100},
                                  {44101, 48000}, {768000, 44100}, {8000, 44101}};

size_t inputFor(size_t outFrames, RatePair rates) {
    return (outFrames * rates.in + rates.out - 1) / rates.out;
}

/** A ring that is read in place: a region ends at the end of its storage. Always full. */
struct RingModel {
    size_t region(size_t wanted) const { return std::min(wanted, capacity - position % capacity); }
    const size_t capacity;
    size_t position = 0;
};

/**
 * Pulls blocks from one ring into another as a stage of a chain does: a pull asks for the input of
 * its output, rounded up, takes it region by region and ends where a call yields nothing.
 */
struct Puller {
    /** Frames produced; `frames` unless the block came short. */
    size_t pullBlock(const Pcm& source, size_t frames) {
        size_t done = 0;
        while (done < frames) {
            const size_t region = outRing.region(frames - done);
            const size_t produced = pullRegion(source, region);
            outRing.position += produced;
            done += produced;
            if (produced < region) {
                break;
            }
        }
        return done;
    }

    size_t pullRegion(const Pcm& source, size_t frames) {
        size_t need = inputFor(frames, rates);
        size_t done = 0;
        while (need > 0 && done < frames) {
            const auto counts =
                converter.convert(source, inRing.position, inRing.region(need), out, frames - done);
            inRing.position += counts.consumed;
            need -= counts.consumed;
            done += counts.produced;
            if (counts.produced == 0) {
                break;
            }
        }
        return done;
    }

    const RatePair rates;
    RingModel inRing;
    RingModel outRing;
    TestConverter converter{rates};
    Pcm out{};
};

TEST(ResamplerFlow, OutputDependsOnTheInputAloneNotOnCuts) {
    std::minstd_rand random(7);
    for (const RatePair rates : kAllKinds) {
        for (const uint32_t channels : {1u, 2u, 8u}) {
            const size_t frames = inputFor(1500, rates);
            const Pcm in = makeNoise(frames * channels, channels);
            const Pcm whole = TestConverter(rates, channels).convertAll(in, rates);

            TestConverter converter(rates, channels);
            Pcm pieces;
            const auto widest = static_cast<uint32_t>(inputFor(60, rates) + 3);
            for (size_t position = 0, idle = 0; position < frames && idle < 10;) {
                const size_t offered = std::min<size_t>(random() % widest, frames - position);
                const auto counts = converter.convert(in, position, offered, pieces, random() % 60);
                ASSERT_EQ(0, converter.status());
                position += counts.consumed;
                idle = counts.consumed + counts.produced > 0 ? 0 : idle + 1;
            }
            // What is still due is the reserve, a few frames of the slower rate.
            const size_t due = 8 * channels * (rates.out / rates.lower() + 1);
            ASSERT_GE(pieces.size() + due, whole.size()) << rates.in << " to " << rates.out;
            const size_t common = std::min(pieces.size(), whole.size());
            ASSERT_TRUE(std::equal(pieces.begin(), pieces.begin() + static_cast<ptrdiff_t>(common),
                                   whole.begin()))
                << rates.in << " to " << rates.out << ", " << channels << " channels";
        }
    }
}

TEST(ResamplerFlow, EveryChannelEqualsItsOwnMonoConversion) {
    for (const RatePair rates : kAllKinds) {
        constexpr uint32_t kChannels = 8;
        const size_t frames = inputFor(700, rates);
        const Pcm in = makeNoise(frames * kChannels, 3);
        const Pcm out = TestConverter(rates, kChannels).convertAll(in, rates);
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            Pcm alone(frames);
            for (size_t i = 0; i < frames; ++i) {
                alone[i] = in[i * kChannels + channel];
            }
            const Pcm expected = TestConverter(rates).convertAll(alone, rates);
            ASSERT_EQ(out.size(), expected.size() * kChannels);
            for (size_t i = 0; i < expected.size(); ++i) {
                ASSERT_EQ(expected[i], out[i * kChannels + channel]) << "frame " << i;
            }
        }
    }
}

TEST(ResamplerFlow, NoBlockComesShortAtTheEndOfAnyRing) {
    constexpr RatePair kPairs[] = {{48000, 44100}, {44100, 48000}, {96000, 48000}, {88200, 48000},
                                   {8000, 48000},  {48000, 16000}, {192000, 44100}};
    for (const RatePair rates : kPairs) {
        const size_t block = rates.out / 50;
        const size_t need = inputFor(block, rates);
        constexpr size_t kBlocks = 100;
        const Pcm in = makeNoise((kBlocks + 4) * need, 5);
        const Pcm whole = TestConverter(rates).convertAll(in, rates);
        // Storage of 1 to 3 blocks: in step with the blocks, and one frame and odd counts off.
        for (const size_t spare : {size_t{0}, size_t{1}, block / 3, block - 1, block, block + 1,
                                   2 * block - 1, 2 * block}) {
            Puller puller{rates, {.capacity = need + spare}, {.capacity = block + spare}};
            for (size_t i = 0; i < kBlocks; ++i) {
                ASSERT_EQ(block, puller.pullBlock(in, block))
                    << rates.in << " to " << rates.out << ", spare " << spare << ", block " << i;
            }
            ASSERT_TRUE(std::equal(puller.out.begin(), puller.out.end(), whole.begin()));
        }
    }
}

TEST(ResamplerFlow, CutsThatWanderThroughBothRingsDoNotDrainTheReserve) {
    // Small rings out of step: both regions of either ring take every length within few pulls.
    for (const RatePair rates : {RatePair{96000, 48000}, RatePair{48000, 16000},
                                 RatePair{48000, 44100}, RatePair{8000, 48000}}) {
        constexpr size_t kBlock = 50;
        constexpr size_t kPulls = 1500;
        const size_t need = inputFor(kBlock, rates);
        const Pcm in = makeNoise((kPulls + 2) * need, 23);
        Puller puller{rates, {.capacity = need + 1}, {.capacity = kBlock + 3}};
        for (size_t i = 0; i < kPulls; ++i) {
            ASSERT_EQ(kBlock, puller.pullBlock(in, kBlock))
                << rates.in << " to " << rates.out << ", pull " << i;
        }
    }
}

TEST(ResamplerFlow, ReserveBearsFourPullsOfOneFrameFromOneFrame) {
    for (const RatePair rates : kAllKinds) {
        TestConverter converter(rates);
        Pcm out;
        for (size_t i = 0; i < 4; ++i) {
            const auto counts = converter.convert(Pcm(1), 0, 1, out, 1);
            ASSERT_EQ(1u, counts.produced) << rates.in << " to " << rates.out << ", pull " << i;
        }
        const size_t need = inputFor(960, rates);
        EXPECT_EQ(960u, converter.convert(Pcm(need), 0, need, out, 960).produced);
    }
}

TEST(ResamplerFlow, FirstCallYieldsAllThatItsInputIsWorth) {
    for (const RatePair rates : kAllKinds) {
        Pcm out;
        const size_t need = inputFor(960, rates);
        const auto counts = TestConverter(rates).convert(Pcm(need), 0, need, out, 960);
        EXPECT_EQ(960u, counts.produced) << rates.in << " to " << rates.out;
    }
}

TEST(ResamplerFlow, ExactInputOfABlockNeverRunsOutBeforeItsOutput) {
    // The ring holds what the block is worth and not a frame more, however the output is cut.
    std::minstd_rand random(29);
    for (const RatePair rates : kAllKinds) {
        const size_t block = rates.out / 25;
        const size_t worth = block * rates.in / rates.out;
        if (worth * rates.out != block * rates.in) {
            continue;
        }
        TestConverter converter(rates);
        for (size_t i = 0; i < 20; ++i) {
            Pcm out;
            size_t held = worth;
            while (out.size() < block) {
                const size_t part = std::min<size_t>(1 + random() % 300, block - out.size());
                const size_t offered = std::min(held, inputFor(part, rates));
                ASSERT_GT(offered, 0u) << rates.in << " to " << rates.out;
                const auto counts = converter.convert(Pcm(offered), 0, offered, out, part);
                ASSERT_EQ(part, counts.produced) << rates.in << " to " << rates.out;
                held -= counts.consumed;
            }
            ASSERT_EQ(0u, held);
        }
    }
}

TEST(ResamplerFlow, StarvedConverterTakesWhatItIsGivenAndGoesOnWhereItWas) {
    for (const RatePair rates : {RatePair{96000, 48000}, RatePair{48000, 44100},
                                 RatePair{192000, 44100}, RatePair{768000, 4000}}) {
        const Pcm in = makeNoise(inputFor(2000, rates), 11);
        const Pcm whole = TestConverter(rates).convertAll(in, rates);
        TestConverter converter(rates);
        Pcm out;
        size_t position = 0;
        size_t dryCalls = 0;
        while (dryCalls < 3) {  // one frame at a time makes less than one output frame
            const auto counts = converter.convert(in, position, 1, out, 960);
            ASSERT_EQ(0, converter.status());
            ASSERT_GT(counts.consumed + counts.produced, 0u);
            if (counts.produced == 0) {
                ASSERT_EQ(1u, counts.consumed);
                ++dryCalls;
            }
            position += counts.consumed;
            ASSERT_LT(position, in.size()) << "never ran dry";
        }
        // One pull refills the reserve and may come short by it. From then on each pull is whole
        // again, even those that start with a region of one frame.
        constexpr size_t kBlock = 100;
        for (size_t i = 0; i < 5; ++i) {
            const auto begin = converter.convert(in, position, 1, out, kBlock);
            position += begin.consumed;
            const auto rest = converter.convert(in, position, inputFor(kBlock, rates), out,
                                                kBlock - begin.produced);
            position += rest.consumed;
            if (i == 0) {
                EXPECT_GE(rest.produced, kBlock - 5);
            } else {
                EXPECT_EQ(1u, begin.produced) << rates.in << " to " << rates.out;
                EXPECT_EQ(kBlock - 1, rest.produced) << rates.in << " to " << rates.out;
            }
        }
        ASSERT_TRUE(std::equal(out.begin(), out.end(), whole.begin()));
    }
}

TEST(ResamplerFlow, PhaseIsExactAfterTenMillionFrames) {
    // Every whole second the output meets the input's grid again: a signal that starts then must
    // come out as from a new converter, to the bit.
    for (const RatePair rates : {RatePair{44100, 48000}, RatePair{44101, 48000}}) {
        constexpr size_t kSeconds = 210;
        TestConverter converter(rates);
        const Pcm silence(rates.in);
        for (size_t i = 0; i < kSeconds; ++i) {
            Pcm ignored;
            const auto counts = converter.convert(silence, 0, rates.in, ignored, rates.out);
            ASSERT_EQ(rates.in, counts.consumed);
            ASSERT_EQ(rates.out, counts.produced);
        }
        const Pcm noise = makeNoise(4410, 13);
        EXPECT_EQ(TestConverter(rates).convertAll(noise, rates),
                  converter.convertAll(noise, rates));
    }
}

TEST(ResamplerFlow, ResetStartsFromSilenceAgain) {
    constexpr RatePair kRates{96000, 44100};
    TestConverter converter(kRates, 2);
    const Pcm noise = makeNoise(2 * 3001, 17);
    const Pcm first = converter.convertAll(noise, kRates);
    converter.convertAll(noise, kRates);
    converter.handle()->reset(converter.handle());
    EXPECT_EQ(first, converter.convertAll(noise, kRates));
}

TEST(ResamplerFlow, WhatIsNotSupportedIsRefused) {
    struct Case {
        uint32_t in, out, channels, quality;
        int status;
    };
    constexpr Case kCases[] = {{4000, 768000, 1, 0, 0},        {768000, 4000, 8, 10, 0},
                               {0, 48000, 2, 4, -EINVAL},      {48000, 0, 2, 4, -EINVAL},
                               {3999, 48000, 2, 4, -EINVAL},   {48000, 768001, 2, 4, -EINVAL},
                               {768001, 48000, 2, 4, -EINVAL}, {48000, 3999, 2, 4, -EINVAL},
                               {44100, 48000, 0, 4, -EINVAL},  {44100, 48000, 9, 4, -EINVAL},
                               {44100, 48000, 2, 11, -EINVAL}};
    for (const Case& refused : kCases) {
        resampler_itfe* handle = nullptr;
        EXPECT_EQ(refused.status, create_resampler(refused.in, refused.out, refused.channels,
                                                   refused.quality, nullptr, &handle))
            << refused.in << " to " << refused.out << ", " << refused.channels << " channels";
        EXPECT_EQ(refused.status == 0, handle != nullptr);
        release_resampler(handle);
    }
    EXPECT_EQ(-EINVAL, create_resampler(44100, 48000, 2, 4, nullptr, nullptr));
    int thing = 0;
    resampler_itfe* handle = nullptr;
    EXPECT_EQ(-EINVAL,
              create_resampler(44100, 48000, 2, 4,
                               reinterpret_cast<resampler_buffer_provider*>(&thing), &handle));

    TestConverter converter({44100, 48000});
    size_t inCount = 1, outCount = 1;
    int16_t sample = 0;
    EXPECT_EQ(-EINVAL, converter.handle()->resample_from_input(converter.handle(), nullptr,
                                                               &inCount, &sample, &outCount));
    EXPECT_EQ(0u, inCount + outCount);
}

}  // namespace
}  // namespace android
