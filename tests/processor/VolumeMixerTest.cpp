#include "processor/VolumeMixer.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>

#include "tests/support/Frames.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

constexpr audio_format_t k16 = AUDIO_FORMAT_PCM_16_BIT;
constexpr audio_format_t k32 = AUDIO_FORMAT_PCM_32_BIT;
constexpr uint32_t kStereo = AUDIO_CHANNEL_OUT_STEREO;

sp<VolumeMixer> makeMixer(audio_format_t src, audio_format_t dst, int rampFrames,
                          volumer_type_t type) {
    return new VolumeMixer(src, kStereo, dst, kStereo, rampFrames, type);
}

int wrap32(int64_t value) {
    return static_cast<int>(static_cast<uint32_t>(value));
}

// The stage in plain 64-bit arithmetic, a frame at a time.
struct ScalarModel {
    audio_format_t src;
    audio_format_t dst;
    volumer_type_t type;
    int rampFrames;
    bool rampEnabled = true;
    int prev[2] = {1 << 28, 1 << 28};
    int inc[2] = {0, 0};
    int gain[2] = {4096, 4096};
    float volumes[2] = {1.0F, 1.0F};

    void setVolume(float left, float right) {
        if (left == volumes[0] && right == volumes[1]) {
            return;  // the same gain again does not start its ramp anew
        }
        volumes[0] = left;
        volumes[1] = right;
        for (int i = 0; i < 2; ++i) {
            gain[i] = static_cast<int>(std::floor(volumes[i] * 4096.0F));
            const int64_t target = int64_t{gain[i]} * 65536;
            inc[i] = rampFrames != 0
                         ? static_cast<int>(int64_t{wrap32(target - prev[i])} / rampFrames)
                         : 0;
            prev[i] = inc[i] == 0 ? static_cast<int>(target) : prev[i];
        }
    }
    int64_t gained(int64_t sample, int64_t factor) const {
        const int64_t input = src == k32 ? sample >> 12 : sample;
        const int product = wrap32(input * factor);
        return dst == k32 ? product : std::clamp<int64_t>(product >> 12, -32768, 32767);
    }
    void run(std::vector<int>& out, const std::vector<int>& in) {
        const bool ramps = rampEnabled && (inc[0] != 0 || inc[1] != 0);
        for (size_t n = 0; n < in.size(); ++n) {
            const size_t i = n % 2;
            const int64_t q = gained(in[n], ramps ? prev[i] >> 16 : gain[i]);
            const int sum = wrap32(type == VOLUMER_TYPE_MIX ? q + out[n] : q);
            out[n] = dst == k32 ? sum : static_cast<int16_t>(sum);
            prev[i] = ramps ? wrap32(int64_t{prev[i]} + inc[i]) : prev[i];
        }
        for (size_t i = 0; ramps && i < 2; ++i) {
            const int next = wrap32(int64_t{prev[i]} + inc[i]) >> 16;
            if ((inc[i] > 0 && next >= gain[i]) || (inc[i] < 0 && next <= gain[i])) {
                inc[i] = 0;
                prev[i] = gain[i] * 65536;
            }
        }
    }
};

std::vector<uint8_t> packed(const std::vector<int>& samples, audio_format_t format) {
    const size_t sampleSize = audio_bytes_per_sample(format);
    std::vector<uint8_t> bytes(samples.size() * sampleSize);
    for (size_t i = 0; i < samples.size(); ++i) {
        // Little-endian: the low bytes are the 16-bit value.
        memcpy(&bytes[i * sampleSize], &samples[i], sampleSize);
    }
    return bytes;
}

void expectAsModel(ScalarModel model) {
    std::minstd_rand random(5);
    const auto sample = [&random](audio_format_t format) {
        static constexpr int kEdges[] = {0,
                                         -1,
                                         1,
                                         32767,
                                         -32768,
                                         std::numeric_limits<int>::max(),
                                         std::numeric_limits<int>::min()};
        const int value = random() % 4 == 0
                              ? kEdges[random() % 7]
                              : static_cast<int>(random() * 2U) ^ -(random() % 2 == 0);
        return format == k16 ? static_cast<int16_t>(value) : value;
    };
    const auto mixer = makeMixer(model.src, model.dst, model.rampFrames, model.type);
    for (int pass = 0; pass < 2000; ++pass) {
        if (random() % 6 == 0) {
            // Small steps too, on which a gain stays for some frames.
            const unsigned range = random() % 2 == 0 ? 4097 : 40;
            const auto step = random() % range;
            const float left = static_cast<float>(step) / 4096.0F;
            const float right = random() % 5 == 0 ? 0.0F : 1.0F - left / 3.0F;
            ASSERT_EQ(OK, mixer->setVolume(left, right));
            model.setVolume(left, right);
        }
        if (random() % 20 == 0) {
            model.rampEnabled = !model.rampEnabled;
            mixer->ramp(model.rampEnabled);
        }
        std::vector<int> in(2 * (1 + random() % 67));
        std::vector<int> out(in.size());
        for (size_t i = 0; i < in.size(); ++i) {
            in[i] = sample(model.src);
            out[i] = sample(model.dst);
        }
        std::vector<uint8_t> bytes = packed(out, model.dst);
        std::vector<uint8_t> source = packed(in, model.src);
        ASSERT_EQ(static_cast<ssize_t>(in.size() / 2),
                  mixer->mix(bytes.data(), in.size() / 2, source.data()));
        model.run(out, in);
        ASSERT_EQ(packed(out, model.dst), bytes) << "pass " << pass;
    }
}

TEST(VolumeMixer, EveryKernelEqualsTheScalarModelThroughRampsAndExtremes) {
    for (const audio_format_t src : {k16, k32}) {
        for (const audio_format_t dst : {k16, k32}) {
            for (const volumer_type_t type : {VOLUMER_TYPE_MIX, VOLUMER_TYPE_PROCESS}) {
                // A long ramp, one shorter than most passes (it overshoots), none, and the length
                // that an absurd buffer size gives.
                for (const int rampFrames : {1024, 100, 7, 0, -1}) {
                    SCOPED_TRACE(testing::Message() << src << " to " << dst << ", type " << type
                                                    << ", ramp " << rampFrames);
                    expectAsModel({src, dst, type, rampFrames});
                }
            }
        }
    }
}

// Whatever the processor has, the result is the same, bytes and ramp position.
template <int MixType, typename TO, typename TI>
void expectEqualKernels(std::minstd_rand& random) {
    const size_t frames = 1 + random() % 67;
    std::vector<TI> in(2 * frames);
    std::vector<TO> out(2 * frames);
    std::generate(in.begin(), in.end(), [&] { return static_cast<TI>(random() * 2U); });
    std::generate(out.begin(), out.end(), [&] { return static_cast<TO>(random() * 2U); });
    // Half of the gains lie outside 0 to 1, as where a ramp has run past its target.
    const auto gain = [&] {
        return static_cast<int>(random() % 8194) - (random() % 2 == 0 ? 4096 : 0);
    };
    short volume[] = {static_cast<short>(gain()), static_cast<short>(gain() / 2)};
    int position[] = {gain() * 65536, gain() / 2 * 65536};
    int increment[] = {static_cast<int>(random() % 4000000) - 2000000, 77};
    const bool ramp = random() % 2 == 0;
    auto outAgain = out;
    int positionAgain[] = {position[0], position[1]};
    volumeKernel<MixType, TO, TI>(InstructionSet::kBaseline)(out.data(), frames, in.data(), ramp,
                                                             position, increment, volume);
    volumeKernel<MixType, TO, TI>(widestInstructionSet())(outAgain.data(), frames, in.data(), ramp,
                                                          positionAgain, increment, volume);
    ASSERT_EQ(out, outAgain);
    ASSERT_TRUE(std::ranges::equal(position, positionAgain));
}

TEST(VolumeMixer, KernelsOfEveryInstructionSetAgree) {
    std::minstd_rand random(6);
    for (int pass = 0; pass < 5000; ++pass) {
        expectEqualKernels<0, short, short>(random);
        expectEqualKernels<0, short, int>(random);
        expectEqualKernels<0, int, short>(random);
        expectEqualKernels<0, int, int>(random);
        expectEqualKernels<2, short, short>(random);
        expectEqualKernels<2, short, int>(random);
        expectEqualKernels<2, int, short>(random);
        expectEqualKernels<2, int, int>(random);
        ASSERT_FALSE(testing::Test::HasFatalFailure()) << "pass " << pass;
    }
}

TEST(VolumeMixer, RefusesALeftGainOutsideTheRangeAndHoldsTheRightOne) {
    const auto mixer = makeMixer(k16, k16, 0, VOLUMER_TYPE_PROCESS);
    for (const float refused : {-0.1F, 1.1F, std::nanf("")}) {
        EXPECT_EQ(-EINVAL, mixer->setVolume(refused, 0.5F));
    }
    for (const auto& [given, heard] : {std::pair{7.0F, 1000}, {-3.0F, 0}, {std::nanf(""), 0}}) {
        EXPECT_EQ(OK, mixer->setVolume(1.0F, given));
        int16_t frame[] = {1000, 1000};
        mixer->process(frame, 1);
        EXPECT_EQ(1000, frame[0]);
        EXPECT_EQ(heard, frame[1]) << given;
    }
}

TEST(VolumeMixer, WithoutAKernelPassesTimeAndWritesNothing) {
    LogCapture log;
    for (const auto& [src, dst, type] : {std::array{1, 1, 2}, {5, 1, 0}, {1, 5, 0}}) {
        const auto mixer =
            makeMixer(static_cast<audio_format_t>(src), static_cast<audio_format_t>(dst), 0,
                      static_cast<volumer_type_t>(type));
        uint32_t in = 7;
        uint32_t out = 9;
        EXPECT_EQ(1, mixer->mix(&out, 1, &in));
        EXPECT_EQ(9U, out);
    }
    EXPECT_EQ(1U, log.count("E audio_volumemixer: VolumeMixer, Invalid type 2"));
    EXPECT_EQ(6U, log.messages().size());
}

TEST(VolumeMixer, PullsThroughWrappedRegionsOnBothSidesAndRefusesTheRest) {
    LogCapture log;
    const auto mixer = makeMixer(k16, k16, 0, VOLUMER_TYPE_MIX);
    uint32_t frame = 1;
    EXPECT_EQ(-ENOSYS, mixer->process(&frame, 1)) << "in place is for the overwriting type";
    EXPECT_EQ(-EINVAL, mixer->mix(&frame, 0, &frame));
    EXPECT_EQ(-EINVAL, mixer->mix(nullptr, 1, &frame));
    EXPECT_EQ(-EINVAL, mixer->mix(&frame, 1, sp<FrameBuffer>()));
    EXPECT_EQ(-ENODEV, mixer->process(1));
    EXPECT_EQ(2U, log.messages().size());

    const auto in = makeBuffer(7, k16, kStereo, 5);
    const auto out = makeBuffer(9, k16, kStereo, 6);
    mixer->setInputBuffer(in);
    mixer->setOutputBuffer(out);
    in->write(numberedFrames(1, 7).data(), 7);
    EXPECT_EQ(0, mixer->process(size_t{0}));
    EXPECT_EQ(7, mixer->process(8));
    EXPECT_EQ(numberedFrames(1, 7), drain<uint32_t>(*out));
    EXPECT_EQ(0, mixer->process(8));
    // A full output's refusal is the result; so is one in the middle of a call.
    in->write(numberedFrames(1, 7).data(), 7);
    out->write(numberedFrames(1, 9).data(), 6);
    EXPECT_EQ(-EAGAIN, mixer->process(7));
    EXPECT_EQ(-EAGAIN, mixer->process(1));
}

}  // namespace
