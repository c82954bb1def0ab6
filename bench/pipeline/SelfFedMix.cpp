#include "bench/pipeline/SelfFedMix.h"

#include <time.h>

#include <cstdlib>
#include <stdexcept>

namespace {

using android::sp;

constexpr uint32_t kRate = 48000;
constexpr size_t kStreamBufferFrames = 2000;
constexpr int16_t kLevels[2] = {60, -30};  // 500 of them fit into 16 bits
// By then a filter's history holds only the level.
constexpr size_t kSettlingCycles = 2;

/** Of this thread only, without the machine's other work. */
double processorNs() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

}  // namespace

SelfFedMix::Output::Output(SelfFedMix& mix)
    : AudioOutput(kRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                  static_cast<audio_output_flags_t>(0)),
      mMix(mix) {}

ssize_t SelfFedMix::Output::onDataProcessed(void* buffer, size_t byteCount) {
    mMix.onBlock(static_cast<const int16_t*>(buffer), byteCount);
    return static_cast<ssize_t>(byteCount);
}

SelfFedMix::SelfFedMix(size_t streamCount, uint32_t streamRate)
    : mOutput(new Output(*this)), mPipeline(new android::AudioPipeline()) {
    const size_t frames = kFrames * streamRate / kRate;
    for (size_t i = 0; i < frames; ++i) {
        mBlock.insert(mBlock.end(), {kLevels[0], kLevels[1]});
    }
    mCyclesLeft = 1;
    // First, so that streams are converted to its configuration once.
    if (mPipeline->registerOutput(mOutput.get()) != 0) {
        throw std::runtime_error("the output was refused");
    }
    for (size_t i = 0; i < streamCount; ++i) {
        const sp<android::AudioStream> stream(
            new android::AudioStream(streamRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                                     static_cast<audio_output_flags_t>(0), kStreamBufferFrames));
        if (mPipeline->addAudioStream(stream) != 0) {
            throw std::runtime_error("a stream was refused");
        }
        mStreams.push_back(stream);
    }
    // The mix begins with one stream; its first callback writes to all.
    mStreams.front()->write(mBlock.data(), mBlock.size() * sizeof(int16_t));
    {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mIsDone; });
    }
    mSound = true;
    run(kSettlingCycles);
}

SelfFedMix::~SelfFedMix() {
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mStop = true;
    }
    mChanged.notify_all();
    mPipeline->unregisterOutput(mOutput.get());
}

double SelfFedMix::run(size_t cycleCount) {
    {
        std::unique_lock<std::mutex> lock(mLock);
        mWanted = cycleCount;
        mIsDone = false;
        mChanged.notify_all();
        mChanged.wait(lock, [this] { return mIsDone; });
    }
    if (!mSound) {
        throw std::logic_error("a block was short, or not the sum of its streams");
    }
    return mTakenNs;
}

void SelfFedMix::onBlock(const int16_t* samples, size_t byteCount) {
    mSound = mSound && byteCount == kFrames * 2 * sizeof(int16_t);
    for (const sp<android::AudioStream>& stream : mStreams) {
        stream->write(mBlock.data(), mBlock.size() * sizeof(int16_t));
    }
    if (--mCyclesLeft > 0) {
        return;
    }
    mTakenNs = processorNs() - mBeginNs;
    mSound = mSound && isSum(samples);
    std::unique_lock<std::mutex> lock(mLock);
    mIsDone = true;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return mWanted > 0 || mStop; });
    mCyclesLeft = mStop ? SIZE_MAX : mWanted;
    mWanted = 0;
    mBeginNs = processorNs();
}

bool SelfFedMix::isSum(const int16_t* samples) const {
    const auto count = static_cast<int>(mStreams.size());
    for (size_t i = 0; i < 2 * kFrames; ++i) {
        // A converter may be off the level by one step.
        if (std::abs(samples[i] - count * kLevels[i % 2]) > count) {
            return false;
        }
    }
    return true;
}
