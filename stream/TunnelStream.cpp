#include "stream/TunnelStream.h"

#include <cerrno>
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
constexpr uint32_t kPiecesPerSecond = 50;  // of silence: each about a block
constexpr uint64_t kMaxCount = std::numeric_limits<uint64_t>::max();

/** The product, or the largest count where it does not fit. */
uint64_t saturatingMultiply(uint64_t a, uint64_t b) {
    uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? kMaxCount : product;
}

}  // namespace

class TunnelStream::ParserCallback {
public:
    explicit ParserCallback(bool& isInCallback) : mIsInCallback(isInCallback) {
        mIsInCallback = true;
    }
    ~ParserCallback() { mIsInCallback = false; }
    ParserCallback(const ParserCallback&) = delete;
    ParserCallback& operator=(const ParserCallback&) = delete;

private:
    bool& mIsInCallback;
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
    const PriorityMutex::Autolock lock(mBridgeLock);
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
    const PriorityMutex::Autolock latencyLock(mLatency);
    {
        const PriorityMutex::Autolock lock(mBridgeLock);
        mBridge.swap(made);
    }
    setLatency_l(mLatencyMs, mLatencyOffsetMs, false);
    return OK;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int TunnelStream::setLatency(unsigned long latencyMs, long offsetMs, bool onlyIfChanged) {
    const PriorityMutex::Autolock lock(mLatency);
    return setLatency_l(latencyMs, offsetMs, onlyIfChanged);
}

int TunnelStream::setLatency_l(unsigned long latencyMs, long offsetMs, bool onlyIfChanged) {
    mLatency.assertHeld();
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
    const PriorityMutex::Autolock lock(mLatency);
    return setLatency_l(mLatencyMs, offsetMs, true);
}

int TunnelStream::open() {
    return open(nullptr);
}

int TunnelStream::open(const WriteStart* write) {
    if (isOpened()) {
        return OK;
    }
    const Mutex::Autolock lock(mLifecycle);
    if (isOpened()) {
        return OK;
    }
    if (isRetired()) {
        return -ENODEV;
    }
    // A paused stream is still registered, and its parser may be calling back for a while yet.
    if (!mObserverRegistered) {
        const int status = mParser->registerObserver(this);
        if (status != OK) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, fail to register parser observer: %d",
                                __func__, status);
            return -ENOSYS;
        }
        mObserverRegistered = true;
    }
    const Mutex::Autolock playState(mPlayState);
    // A pause may have come while this waited for a close.
    return write == nullptr || !isPausedSince(*write) ? startPlaying_l() : OK;
}

int TunnelStream::startPlaying_l() {
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->start();
    }
    mPolicy->setFirstPts();
    return AudioStream::open();
}

// A write opens the stream unless a pause or a close came after the write began. In a parser
// callback the stream is registered, or it would not have been called, and the parser's lock is
// held: it only starts to play.
void TunnelStream::playOn(const WriteStart& start) {
    if (isOpened()) {
        return;
    }
    if (!mIsInCallback || !mWrite) {
        open();
        return;
    }
    const Mutex::Autolock lock(mPlayState);
    const bool mayPlay = !isPausedSince(start) || mIsResumed.load(std::memory_order_relaxed);
    if (mayPlay && !isOver(start) && !isOpened()) {
        startPlaying_l();
    }
}

bool TunnelStream::isHeld() const {
    return !isOpened() && isPausedSince(writeInProgress()) &&
           !mIsResumed.load(std::memory_order_relaxed);
}

int TunnelStream::pause() {
    const Mutex::Autolock lock(mPlayState);
    mIsResumed.store(false, std::memory_order_relaxed);
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->pause();
    }
    return AudioStream::pause();
}

int TunnelStream::resume() {
    {
        const Mutex::Autolock lock(mPlayState);
        const sp<BridgeHalHidl> current = bridge();
        if (current != nullptr) {
            current->resume();
        }
        mPolicy->setFirstPts();
        mIsResumed.store(true, std::memory_order_relaxed);
    }
    wakeWriter();
    return OK;
}

int TunnelStream::flush() {
    {
        const Mutex::Autolock lock(mPlayState);
        mParser->reset();
        mPolicy->setFirstPts();
    }
    return AudioStream::flush();
}

int TunnelStream::close() {
    {
        // From here on no write that began before opens the stream again, and none that begins
        // keeps the parser from this.
        const Mutex::Autolock lock(mPlayState);
        mUnregistering.fetch_add(1, std::memory_order_acq_rel);
        endWrite();
    }
    sp<TunnelStream> self;  // dropped last, after the lock is released
    const Mutex::Autolock lock(mLifecycle);
    if (mObserverRegistered) {
        self = this;  // the parser's reference may be the only one
        mParser->unregisterObserver(this);
        mObserverRegistered = false;
    }
    mUnregistering.fetch_sub(1, std::memory_order_acq_rel);
    if (!isOpened()) {
        endAndDiscard();  // what a pause had kept
        return OK;
    }
    const sp<BridgeHalHidl> current = bridge();
    if (current != nullptr) {
        current->stop();
    }
    return AudioStream::close();
}

int TunnelStream::write(const void* data, size_t byteCount) {
    WriteStart start = now();
    if (takeHostWrite() && !isOpened() && !isPausedSince(start) && open(&start) == OK) {
        // This write undoes a close that it has waited for.
        start = {start.pauseCount, now().closeCount, now().discardCount};
    }
    mWrite = start;
    mHasGivenUp = false;
    beginProgramme();
    const int parsed = mParser->parse(data, byteCount);
    discardIfClosedSince(*mWrite);
    mWrite.reset();
    return parsed;
}

// The parser may have been left inside a burst, and a drop pending, by a programme that was closed.
void TunnelStream::beginProgramme() {
    if (mProgramme != mWrite->closeCount) {
        mProgramme = mWrite->closeCount;
        mParser->reset();
        mCarry.clear();
        mDropBytes = 0;
    }
}

int TunnelStream::onBurstHeaderParsed(hw_sync_mode_t mode, unsigned int /*burstByteCount*/,
                                      unsigned long ptsNs) {
    const ParserCallback scope(mIsInCallback);
    forgetCutFrame();
    mHeldMode.reset();
    uint32_t flushes = 0;
    int decision = 0;
    long durationMs = 0;
    {
        // All that this header does to the clock comes before a pause, a flush or a close, or not
        // at all: a clock that it starts behind a pause would run on by itself.
        const Mutex::Autolock lock(mPlayState);
        const bool isFlushed = mWrite && mParser->isResetRequested();
        if (isOver(writeInProgress()) || isFlushed) {
            return -ENOSYS;  // of a programme that is over
        }
        if (isHeld()) {
            // The clock stands still with the stream. The first header after the pause anchors it
            // anew.
            mHeldMode = mode;
            return -ENOSYS;
        }
        flushes = flushCount();
        decision = decide_l(mode, ptsNs, durationMs);
    }
    switch (decision) {
        case HW_SYNC_DECISION_FILL:
            fillUnlessFlushed(static_cast<unsigned long>(durationMs), flushes);
            break;
        case HW_SYNC_DECISION_DROP:
            drop(static_cast<unsigned long>(durationMs));
            break;
        default:
            break;
    }
    return decision < 0 ? decision : OK;
}

int TunnelStream::decide_l(hw_sync_mode_t mode, uint64_t ptsNs, long& durationMs) {
    updateMode_l(mode);
    const sp<BridgeHalHidl> current = bridge();
    if (mHwSyncMode != HW_SYNC_MODE_AV_SYNC || current == nullptr) {
        return -ENOSYS;
    }
    uint64_t syncPtsNs = 0;
    current->getSyncPts(syncPtsNs);
    const int decision = mPolicy->determine(ptsNs, syncPtsNs, durationMs);
    if (decision == HW_SYNC_DECISION_ANCHOR) {
        current->updateAudioPts(ptsNs);
    }
    return decision;
}

void TunnelStream::updateMode(hw_sync_mode_t mode) {
    const Mutex::Autolock lock(mPlayState);
    updateMode_l(mode);
}

void TunnelStream::updateMode_l(hw_sync_mode_t mode) {
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
            __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, Unknown hw sync mode %d",
                                "updateMode", mode);
            break;
    }
}

void TunnelStream::fill(unsigned long durationMs) {
    fillUnlessFlushed(durationMs, flushCount());
}

void TunnelStream::fillUnlessFlushed(unsigned long durationMs, uint32_t flushes) {
    const uint64_t byteCount =
        saturatingMultiply(saturatingMultiply(mFrameSize, mSampleRate / 1000), durationMs);
    // More than a signed 32-bit count of silence can't be had.
    if (byteCount > std::numeric_limits<int32_t>::max()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "No enough memory");
        return;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s, filling silience %llu ms, %d bytes", "fill",
                        static_cast<unsigned long long>(durationMs), static_cast<int>(byteCount));
    if (byteCount == 0) {
        return;
    }
    const WriteStart start = writeInProgress();
    playOn(start);
    const WriteStart here = now();
    const auto goesOn = [&](nsecs_t& /*startNs*/) {
        return isOpened() && !isPausedSince(here) && !isOver(start) && flushCount() == flushes;
    };
    const size_t frameCount = byteCount / mFrameSize;
    const size_t placed = place(
        frameCount, std::max<size_t>(mSampleRate / kPiecesPerSecond, 1),
        [this](void* region, size_t /*done*/, size_t regionFrameCount) {
            memset(region, 0, regionFrameCount * mFrameSize);
        },
        goesOn);
    discardIfFlushedSince(flushes);
    // Silence that the host itself has ended is not missed.
    nsecs_t ignored = 0;
    if (placed < frameCount && goesOn(ignored)) {
        logMissed((frameCount - placed) * mFrameSize);
    }
}

void TunnelStream::drop(unsigned long durationMs) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s, drop %llu ms", __func__,
                        static_cast<unsigned long long>(durationMs));
    const uint64_t frameCount = saturatingMultiply(mSampleRate, durationMs) / 1000;
    const uint64_t byteCount = saturatingMultiply(frameCount, mFrameSize);
    // What does not fit is more than will ever come; it is still whole frames.
    const uint64_t wholeFrames =
        byteCount == kMaxCount && mFrameSize > 0 ? byteCount - byteCount % mFrameSize : byteCount;
    mDropBytes = wholeFrames;
}

// The payload after a header begins with a new frame: a burst that ends inside a frame costs that
// frame and shifts nothing behind it.
void TunnelStream::forgetCutFrame() {
    if (mCarry.byteCount() > 0 && flushCount() == mCarryFlushCount) {
        logMissed(mCarry.byteCount());
    }
    mCarry.clear();
    mDropBytes -= mFrameSize > 0 ? mDropBytes % mFrameSize : 0;
}

int TunnelStream::onBurstPayloadParsed(const void* data, unsigned long byteCount) {
    const ParserCallback scope(mIsInCallback);
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

// Runs follow the host's write boundaries, which know nothing of frames: a frame that two runs of a
// burst share is put together here.
void TunnelStream::writePayload(const uint8_t* data, size_t byteCount) {
    if (byteCount == 0) {
        return;
    }
    if (flushCount() != mCarryFlushCount) {
        mCarry.clear();
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
    mCarryFlushCount = flushCount();
}

void TunnelStream::enterHeldMode() {
    const Mutex::Autolock lock(mPlayState);
    if (mHeldMode && isOpened()) {
        updateMode_l(*mHeldMode);
        mHeldMode.reset();
    }
}

// A paused stream takes what its ring has room for; the rest waits like any write, and goes on when
// the host lets the stream play again. A pause that outlasts one run's second costs the later runs
// of the same write no second each.
void TunnelStream::writeFrames(const uint8_t* data, size_t byteCount) {
    const WriteStart start = writeInProgress();
    bool wasHeld = false;
    const size_t written = placeBytes(data, byteCount, [&](nsecs_t& startNs) {
        playOn(start);
        if (!isOpened()) {
            wasHeld = true;
            return !isOver(start) && !mHasGivenUp;
        }
        if (wasHeld) {
            // The mixer had no chance to make room meanwhile.
            startNs = systemTime(SYSTEM_TIME_MONOTONIC);
            wasHeld = false;
            enterHeldMode();
        }
        return !isOver(start);
    });
    mHasGivenUp = written < byteCount && !isOpened();
}

}  // namespace android
