// The worker's work for streams of the mixing configuration, from each input ring through the last
// stage into the mix, compared with the textbook loop alone. A unit is a frame of one stream.
#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/processor/textbook.h"
#include "bench/support/Benchmarks.h"
#include "bench/support/Duel.h"
#include "processor/VolumeMixer.h"

namespace {

using android::FrameBuffer;
using android::sp;
using android::VolumeMixer;

constexpr audio_format_t kFormat = AUDIO_FORMAT_PCM_16_BIT;
constexpr uint32_t kMask = AUDIO_CHANNEL_OUT_STEREO;

/** Last stages that all add into one mix, each from its own ring. */
class Stages {
public:
    Stages(size_t streamCount, size_t frames)
        : mFrames(frames), mMix(new FrameBuffer(kFormat, kMask, frames, false, 0, 0)) {
        for (size_t i = 0; i < streamCount; ++i) {
            // Three blocks and some: the ring may end anywhere in a block.
            const sp<FrameBuffer> ring(
                new FrameBuffer(kFormat, kMask, 3 * frames + frames / 3, false, 0, 0));
            const sp<VolumeMixer> stage(
                new VolumeMixer(kFormat, kMask, kFormat, kMask, 0, android::VOLUMER_TYPE_MIX));
            stage->setVolume(0.75F, 0.75F);
            stage->setInputBuffer(ring);
            stage->setOutputBuffer(mMix);
            mRings.push_back(ring);
            mStages.push_back(stage);
        }
        mMix->disallow(android::FRAME_BUFFER_RELEASE_WRITE);
    }

    void mix() {
        for (size_t i = 0; i < mStages.size(); ++i) {
            mRings[i]->updateWritePosition(mFrames);  // as if a client had written a block
            if (mStages[i]->process(mFrames) != static_cast<ssize_t>(mFrames)) {
                throw std::logic_error("a stage gave less than a block");
            }
        }
    }

private:
    const size_t mFrames;
    const sp<FrameBuffer> mMix;
    std::vector<sp<FrameBuffer>> mRings;
    std::vector<sp<VolumeMixer>> mStages;
};

}  // namespace

void registerBenchmarks() {
    for (const size_t streamCount : {1U, 8U, 64U}) {
        for (const size_t frames : {441U, 900U, 960U}) {
            const std::string name = std::to_string(streamCount) + "/" + std::to_string(frames);
            registerDuel("final_stage/" + name, [streamCount, frames](Duel& duel) {
                const auto units = static_cast<double>(streamCount * frames);
                const auto stages = std::make_shared<Stages>(streamCount, frames);
                duel.add("stage", units, [stages] { stages->mix(); });
                // Inputs as large as the rings: both come from the same level of cache.
                const auto in = std::make_shared<std::vector<std::vector<int16_t>>>(
                    streamCount, std::vector<int16_t>(2 * (3 * frames + frames / 3), 3));
                const auto out = std::make_shared<std::vector<int16_t>>(2 * frames);
                const auto turn = std::make_shared<size_t>(0);
                duel.add("textbook", units, [in, out, turn, frames] {
                    *turn = (*turn + 1) % 3;
                    for (const std::vector<int16_t>& source : *in) {
                        textbookMix16(out->data(), 2 * frames, &source[2 * frames * *turn],
                                      3 << 10);
                    }
                });
            });
        }
    }
}
