#include "stream/TunnelStream.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>

#include "android/log.h"
#include "hwsync/HwSyncDefaultPolicy.h"
#include "media/AudioParameter.h"
#include "utils/String8.h"

namespace android {

namespace {

constexpr const char* kTag = "TunnelStream";
constexpr unsigned int kBridgeKind = 128;
constexpr uint64_t kNsPerMs = 1'000'000;
constexpr int kMaxIdleAttempts = 4;  // of a second each
constexpr uint64_t kMaxCount = std::numeric_limits<uint64_t>::max();

/** The product, or the largest count where it does not fit. */
uint64_t saturatingMultiply(uint64_t a, uint64_t b) {
    uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? kMaxCount : product;
}

}  // namespace

class TunnelStream::CallbackScope {
public:
    explicit CallbackScope(TunnelStream& stream) : mStream(stream) {
        mStream.mCallbackThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    ~CallbackScope() { mStream.mCallbackThread.store({}, std::memory_order_relaxed); }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

private:
    TunnelStream& mStream;
};

TunnelStream::TunnelStream(uint32_t sampleRate, audio_format_t format, uint32_t channelMask,
                           audio_output_flags_t flags, uint32_t bufferFrameCount)
    : AudioStream(sampleRate, format, channelMask, flags, bufferFrameCount),
      mCarry(mFrameSize),
      mParser(new HwSyncBurstParser()),
      mPolicy(std::make_unique<HwSyncDefaultPolicy>()),
      mBridgeFactory(new AVSyncBridgeFactoryHalHidl()) {}

// A registered stream is referenced by its parser, so here it never is.
TunnelStream::~TunnelStream() = default;

sp<BridgeHalHidl> TunnelStream::bridge() const {
    const Mutex::Autolock lock(mBridgeLock);
    return mBridge;
}

int TunnelStream::setParameters(const char* keyValuePairs) try {
    if (keyValuePairs == nullptr) {
        return OK;
    }
    const AudioParameter parameters{String8(keyValuePairs)};
    int hwSyncId = 0;
    if (parameters.getInt(String8("hw_av_sync"), hwSyncId) != OK) {
        return OK;
    }
    const auto wantedId = static_cast<unsigned int>(hwSyncId);
    const Mutex::Autolock parametersLock(mParameters);
    sp<BridgeHalHidl> made = bridge();
    if (made != nullptr && made->getHwSyncId() == wantedId) {
        return OK;
    }
    const int status = mBridgeFactory->createHwSyncBridge(kBridgeKind, wantedId, made);
    if (status != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to create av sync bridge %d",
                            __func__, status);
        return OK;
    }
    const Mutex::Autolock latencyLock(mLatency);
    {
        const Mutex::Autolock lock(mBridgeLock);
        mBridge.swap(made);
    }
    setLatency_l(mLatencyMs, mLatencyOffsetMs, false);
    return OK;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int TunnelStream::setLatency(unsigned long latencyMs, long offsetMs, bool onlyIfChanged) {
    const Mutex::Autolock lock(mLatency);
    return setLatency_l(latencyMs, offsetMs, onlyIfChanged);
}

int TunnelStream::setLatency_l(unsigned long latencyMs, long offsetMs, bool onlyIfChanged) {
    // Unsigned sums wrap around: a negative offset subtracts.
    const uint64_t sumMs = latencyMs + static_cast<uint64_t>(offsetMs);
    if (offsetMs < 0 && uint64_t{0} - static_cast<uint64_t>(offsetMs) > latencyMs) {
        __android_log_print(
            ANDROID_LOG_ERROR, kTag, "%s, invalid latency %llu ms, or offset %lld ms", "setLatency",
            static_cast<unsigned long long>(latencyMs), static_cast<long long>(offsetMs));
        return -EINVAL;
    }
    const uint64_t formerSumMs = mLatencyMs + static_cast<uint64_t>(mLatencyOffsetMs);
    mLatencyMs = latencyMs;
    mLatencyOffsetMs = offsetMs;
    // The same pair has the same sum.
    if (onlyIfChanged && sumMs == formerSumMs) {
        return OK;
    }
    const uint64_t totalNs = sumMs * kNsPerMs;
    mPolicy->setLatency(totalNs);
    const sp<BridgeHalHidl> current = bridge();
    return current != nullptr ? current->setLatency(totalNs) : OK;
}

int TunnelStream::setDownstreamLatency(unsigned long latencyMs, long offsetMs) {
    return setLatency(latencyMs, offsetMs, true);
}

int TunnelStream::setDownstreamLatencyOffset(long offsetMs) {
    const Mutex::Autolock lock(mLatency);
    return setLatency_l(mLatencyMs, offsetMs, true);
}

int TunnelStream::open() {
    if (isOpened()) {
        return OK;
    }
    // From inside a parser callback: the stream was paused meanwhile and plays on. It is
    // registered, or it would not have been called, and the parser's lock is held.
    if (mCallbackThread.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
        return startPlaying();
    }
    const Mutex::Autolock lock(mLifecycle);
    if (isOpened()) {
        return OK;
    }
    const int status = mParser->registerObserver(this);
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to register parser observer: %d",
                            __func__, status);
        return -ENOSYS;
    }
    mObserverRegistered = true;
    return startPlaying();
}

int TunnelStream::startPlaying() {
    const Mutex::Autolock lock(mPlayState);
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->start();
    }
    mPolicy->setFirstPts();
    return AudioStream::open();
}

int TunnelStream::pause() {
    const Mutex::Autolock lock(mPlayState);
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->pause();
    }
    const int status = AudioStream::pause();
    // Last: a write that sees the old count begins before this pause and looks again.
    mPauseCount.fetch_add(1, std::memory_order_release);
    return status;
}

int TunnelStream::resume() {
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->resume();
    }
    mPolicy->setFirstPts();
    return OK;
}

int TunnelStream::flush() {
    mParser->reset();
    mPolicy->setFirstPts();
    return AudioStream::flush();
}

int TunnelStream::close() {
    sp<TunnelStream> self;  // dropped last, behind the lock
    const Mutex::Autolock lock(mLifecycle);
    if (mObserverRegistered) {
        self = this;  // the parser's reference may be the only one
        mParser->unregisterObserver(this);
        mObserverRegistered = false;
    }
    mRestarted.store(true, std::memory_order_relaxed);
    if (!isOpened()) {
        return OK;
    }
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->stop();
    }
    return AudioStream::close();
}

int TunnelStream::write(const void* data, size_t byteCount) {
    return mParser->parse(data, byteCount);
}

int TunnelStream::onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int /*burstByteCount*/,
                                      unsigned long ptsNs) {
    const CallbackScope scope(*this);
    forgetCutFrames();
    updateMode(mode);
    const sp<BridgeHalHidl> current = bridge();
    if (mHwSyncMode != HW_SYNC_MODE_AV_SYNC || current == nullptr) {
        return -ENOSYS;
    }
    uint64_t syncPtsNs = 0;
    current->getSyncPts(syncPtsNs);
    long durationMs = 0;
    switch (mPolicy->determine(ptsNs, syncPtsNs, durationMs)) {
        case HW_SYNC_DECISION_ANCHOR:
            current->updateAudioPts(ptsNs);
            break;
        case HW_SYNC_DECISION_FILL:
            fill(static_cast<unsigned long>(durationMs));
            break;
        case HW_SYNC_DECISION_DROP:
            drop(static_cast<unsigned long>(durationMs));
            break;
        default:
            break;
    }
    return OK;
}

void TunnelStream::updateMode(hw_sync_mode_t mode) {
    const sp<BridgeHalHidl> current = bridge();
    switch (mode) {
        case HW_SYNC_MODE_AV_SYNC:
            if (mHwSyncMode != HW_SYNC_MODE_AV_SYNC) {
                mHwSyncMode = HW_SYNC_MODE_AV_SYNC;
                mPolicy->setFirstPts();
                if (current != nullptr) {
                    current->resume();
                }
            }
            break;
        case HW_SYNC_MODE_FREE_RUN:
            if (mHwSyncMode == HW_SYNC_MODE_AV_SYNC && current != nullptr) {
                mHwSyncMode = HW_SYNC_MODE_FREE_RUN;
                current->pause();
            }
            break;
        default:
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Unknown hw sync mode %d", __func__,
                                mode);
            break;
    }
}

void TunnelStream::fill(unsigned long durationMs) {
    const uint64_t byteCount =
        saturatingMultiply(saturatingMultiply(mFrameSize, mSampleRate / 1000), durationMs);
    // More than a signed 32-bit count of silence can't be had, like silence that the system
    // refuses.
    std::unique_ptr<void, decltype(&free)> silence(nullptr, &free);
    if (byteCount <= std::numeric_limits<int32_t>::max()) {
        silence.reset(calloc(byteCount > 0 ? byteCount : 1, 1));
    }
    if (silence == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "No enough memory");
        return;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s, filling silience %llu ms, %d bytes", __func__,
                        static_cast<unsigned long long>(durationMs), static_cast<int>(byteCount));
    AudioStream::write(silence.get(), byteCount);
}

void TunnelStream::drop(unsigned long durationMs) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s, drop %llu ms", __func__,
                        static_cast<unsigned long long>(durationMs));
    const uint64_t frameCount = saturatingMultiply(mSampleRate, durationMs) / 1000;
    const uint64_t byteCount = saturatingMultiply(frameCount, mFrameSize);
    // What does not fit is more than will ever come; it is still whole frames.
    const uint64_t wholeFrames =
        byteCount == kMaxCount && mFrameSize > 0 ? byteCount - byteCount % mFrameSize : byteCount;
    // A frame that is half dropped is dropped whole.
    const uint64_t begun = mFrameSize > 0 ? mDropBytes % mFrameSize : 0;
    mDropBytes = wholeFrames > kMaxCount - begun ? wholeFrames : wholeFrames + begun;
}

// After a flush, a close, garbage or an abandoned burst the payload begins with a new frame: what a
// carry or a drop has of a former frame belongs to nothing any more.
void TunnelStream::forgetCutFrames() {
    const uint64_t breaks = mParser->breakCount();
    const bool restarted = mRestarted.exchange(false, std::memory_order_relaxed);
    if (breaks == mSeenBreaks && !restarted) {
        return;
    }
    mSeenBreaks = breaks;
    mCarry.clear();
    mDropBytes -= mFrameSize > 0 ? mDropBytes % mFrameSize : 0;
}

int TunnelStream::onBurstPayloadParsed(const void* data, unsigned long byteCount) {
    const CallbackScope scope(*this);
    forgetCutFrames();
    const auto* payload = static_cast<const uint8_t*>(data);
    size_t remaining = byteCount;
    if (mDropBytes > 0) {
        const size_t dropped = remaining < mDropBytes ? remaining : mDropBytes;
        mDropBytes -= dropped;
        payload += dropped;
        remaining -= dropped;
        if (dropped > 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "%s, drop bytes %d", __func__,
                                static_cast<int>(dropped));
        }
    }
    writePayload(payload, remaining);
    return static_cast<int>(byteCount);
}

// AudioStream::write() takes whole frames only, so a frame that two runs share is put together
// here. A frame cut by the end of a burst is completed by the next burst's payload: the payloads of
// bursts that follow each other are one run of frames.
void TunnelStream::writePayload(const uint8_t* data, size_t byteCount) {
    if (byteCount == 0) {
        return;
    }
    const size_t taken = mCarry.complete(data, byteCount);
    data += taken;
    byteCount -= taken;
    if (mCarry.isWhole()) {
        writeFrames(mCarry.frame(), mFrameSize);
        mCarry.clear();
    }
    const size_t cut = mFrameSize > 0 ? byteCount % mFrameSize : 0;
    if (byteCount > cut) {
        writeFrames(data, byteCount - cut);
    }
    mCarry.append(data + (byteCount - cut), cut);
}

// A pause that strikes while this waits for room would cost the payload: no cycle takes frames of a
// paused stream. The rest counts as the stream's next write, which opens it again. A host that
// pauses without end gives up the payload after kMaxIdleAttempts.
void TunnelStream::writeFrames(const uint8_t* data, size_t byteCount) {
    size_t written = 0;
    for (int idleAttempts = 0; idleAttempts < kMaxIdleAttempts;) {
        const uint32_t pauseCount = mPauseCount.load(std::memory_order_acquire);
        const auto more =
            static_cast<size_t>(AudioStream::write(data + written, byteCount - written));
        written += more;
        const bool wasPaused =
            !isOpened() || pauseCount != mPauseCount.load(std::memory_order_acquire);
        if (written == byteCount || !wasPaused) {
            return;
        }
        idleAttempts = more > 0 ? 0 : idleAttempts + 1;
    }
}

}  // namespace android
