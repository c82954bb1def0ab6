#include "bench/pipeline/PacedMix.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace {

constexpr audio_proxy_config_t kMixConfig = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                             STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr audio_proxy_config_t kStreamConfig = {44100, STREAMPROXY_FORMAT_PCM_16_BIT,
                                                STREAMPROXY_CHANNEL_MASK_STEREO, 0};
constexpr audio_proxy_config_t kTunnelConfig = {48000, STREAMPROXY_FORMAT_PCM_16_BIT,
                                                STREAMPROXY_CHANNEL_MASK_STEREO,
                                                STREAMPROXY_FLAG_HW_AV_SYNC};
constexpr size_t kStreams = 8;
constexpr size_t kFrameBytes = 4;
constexpr size_t kMixBytes = 960 * kFrameBytes;  // a cycle
constexpr size_t kStreamSamples = 2 * 882;       // what that takes

}  // namespace

PacedMix::PacedMix(bool isPlaying) : mBlock(kStreamSamples, 100) {
    mPipeline = create_audio_proxy_pipeline();
    const int status = audio_proxy_pipeline_register_output(mPipeline, &kMixConfig, this, onBlock);
    mTunnel = create_audio_proxy_stream(&kTunnelConfig);
    for (size_t i = 0; i < kStreams; ++i) {
        mStreams.push_back(create_audio_proxy_stream(&kStreamConfig));
    }
    if (status != 0 || mTunnel == nullptr || mStreams.back() == nullptr) {
        throw std::runtime_error("the pipeline refused");
    }
    if (isPlaying) {
        // The mix begins with one stream; its first callback writes to all.
        feed(mStreams.front());
    }
}

PacedMix::~PacedMix() {
    audio_proxy_pipeline_unregister_output(mPipeline, this, onBlock);
    for (audio_proxy_stream_t* const stream : mStreams) {
        audio_proxy_stream_flush(stream);
        destroy_audio_proxy_stream(stream);
    }
    destroy_audio_proxy_stream(mTunnel);
    destroy_audio_proxy_pipeline(mPipeline);
}

void PacedMix::observe(Distribution* work) {
    mObserver.store(work, std::memory_order_release);
    const uint64_t seen = cycleCount();
    while (cycleCount() < seen + 2) {
        std::this_thread::sleep_for(kPace);
    }
}

int PacedMix::onBlock(void* cookie, void* /*buffer*/, size_t byteCount) {
    static_cast<PacedMix*>(cookie)->play(byteCount);
    return 0;
}

void PacedMix::feed(audio_proxy_stream_t* stream) {
    audio_proxy_stream_write(stream, mBlock.data(), mBlock.size() * sizeof(int16_t));
}

void PacedMix::play(size_t byteCount) {
    const Clock::time_point now = Clock::now();
    Distribution* const observer = mObserver.load(std::memory_order_acquire);
    if (observer != nullptr && cycleCount() > 0) {
        observer->add(std::chrono::duration<double, std::micro>(now - mReturned).count());
    }
    if (byteCount != kMixBytes) {
        mIsSound.store(false, std::memory_order_relaxed);
    }
    for (audio_proxy_stream_t* const stream : mStreams) {
        feed(stream);
    }
    mCycles.fetch_add(1, std::memory_order_acq_rel);
    // A late cycle does not shorten the next.
    mDue = std::max(mDue + kPace, now);
    std::this_thread::sleep_until(mDue);
    mReturned = Clock::now();
}
