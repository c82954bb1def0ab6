#include "fuzz/simulate/Host.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "android/log.h"
#include "avsync/AVSyncClock.h"
#include "cutils/properties.h"
#include "fuzz/simulate/Library.h"
#include "fuzz/simulate/NumberedStream.h"
#include "fuzz/simulate/Run.h"

namespace {

using android::AVSyncClock;
using android::sp;
using run::fault;
using run::kNsPerMs;
using run::kNsPerSecond;
using run::Random;

constexpr size_t kMaxSlots = 4;
constexpr size_t kNumberedSlots = 2;  // one for each channel of the mix
constexpr size_t kMaxOutputs = 3;
constexpr uint32_t kFirstClockId = 40;
// Oversleeping, which is idle time, too.
constexpr int64_t kSlackNs = 2 * kNsPerMs;

class Host;
Host* gHost = nullptr;

/** One output; the first counts the cycles and follows the numbered streams. */
struct Output {
    size_t index = 0;
    bool isListed = false;      // from before its registration until its removal has returned
    bool isRegistered = false;  // from after its registration
    uint64_t from = 0;          // the cycle in which it was registered
    uint64_t heardCycle = 0;    // the last that it heard
};

/** A place for a stream, which a writer's thread creates, writes and destroys. */
struct Slot {
    audio_proxy_config_t config = {};
    audio_proxy_stream_t* stream = nullptr;
    std::unique_ptr<NumberedStream> known;
    bool isAlive = false;  // its handle may be given to others
    bool isNumbered = false;
    bool isTunnel = false;
    size_t frameSize = 0;
    uint32_t clockId = 0;
    uint64_t ptsNs = 0;
    uint64_t closesBegun = 0;
    uint64_t closesDone = 0;
    uint64_t resumesBegun = 0;
    sp<AVSyncClock> clock;
    unsigned long latencyMs = 0;
};

class Host {
public:
    Host(uint64_t seed, HostEnd end);
    ~Host() { gHost = nullptr; }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void live();
    int hear(Output& output, void* buffer, size_t byteCount);
    void takeLog(const char* message);

private:
    void prepare();
    void writeLoop(size_t slot, uint64_t seed);
    void controlLoop(uint64_t seed);
    void create(Slot& slot, size_t index, Random& random);
    void destroy(Slot& slot);
    void write(Slot& slot, Random& random, uint64_t frameCount);
    void callStream(Slot& slot, Random& random);
    void callPipeline(Random& random);
    void changeOutputs(Random& random);
    void setOutput(Output& output, bool isWanted);
    void pause(Slot& slot);
    void flush(Slot& slot);
    void close(Slot& slot);
    void open(Slot& slot);
    void resume(Slot& slot);
    void checkLatencyOffset(Random& random);
    void callInCallback(Random& random);
    void expectDrained();
    void endAll(Random& random);
    void forkOnce();

    /** Times a call by the time in which all waited; `limit` says how long it may wait. */
    template <typename Call, typename Limit>
    auto timed(const char* name, Limit limit, Call call) {
        const int64_t startNs = run::idleNs();
        run::trace("cycle %" PRIu64 ": %s begins", mCycle, name);
        const auto result = call();
        run::trace("cycle %" PRIu64 ": %s ends", mCycle, name);
        const int64_t tookNs = run::idleNs() - startNs;
        const int64_t limitNs = limit() + kSlackNs;
        if (tookNs > limitNs && !mIsEnding) {
            fault("%s waited for %.6f s, at most %.6f s are allowed", name,
                  static_cast<double>(tookNs) / 1e9, static_cast<double>(limitNs) / 1e9);
        }
        return result;
    }
    /** A call that does not wait. */
    template <typename Call>
    auto quick(const char* name, Call call) {
        return timed(
            name, [] { return int64_t{0}; }, call);
    }
    /** A call that waits for the cycle in progress, and for other such calls. */
    template <typename Call>
    auto control(const char* name, int64_t extraNs, Call call) {
        const uint64_t doneBefore = mControlsDone;
        const auto result = timed(
            name,
            [&] {
                const auto others = static_cast<int64_t>(mControlsDone - doneBefore);
                return extraNs + (2 + 2 * others) * mCycleLimitNs;
            },
            call);
        ++mControlsDone;
        return result;
    }
    void expectStatus(const char* name, int status, std::initializer_list<int> allowed) const {
        if (std::find(allowed.begin(), allowed.end(), status) == allowed.end() && !mIsEnding) {
            fault("%s returned %d", name, status);
        }
    }
    bool isStopping() const { return mIsStopping || run::nowNs() >= mEndNs; }

    const Library& mLibrary = Library::instance();
    Random mRandom;
    const HostEnd mEnd;
    audio_proxy_pipeline_t* mPipeline = nullptr;
    bool mIsGone = false;    // the pipeline was destroyed
    bool mIsEnding = false;  // the process or the pipeline is: calls are refused
    bool mIsStopping = false;
    bool mIsChurning = false;  // streams are destroyed while others use them
    int mFd = -1;

    audio_proxy_config_t mMix = {};
    size_t mBlockFrames = 0;
    size_t mRingFrames = 0;
    int64_t mEndNs = 0;
    int64_t mMaxCallbackNs = 0;
    int64_t mCycleLimitNs = 0;
    uint32_t mPacePercent = 100;  // of the block's duration that the callback takes
    uint32_t mSlowRate = 0;       // of callbacks, in a million
    uint32_t mFailRate = 0;
    uint32_t mInCallbackRate = 0;
    Random mCallbackRandom{0};

    std::array<Output, kMaxOutputs> mOutputs;
    bool mIsOutputChanging = false;
    std::array<Slot, kMaxSlots> mSlots;
    size_t mSlotCount = 0;
    uint64_t mCreationTime = 0;
    uint64_t mCycle = 0;
    std::vector<uint8_t> mBlock;  // of the cycle
    std::vector<int32_t> mChannel;
    uint32_t mForeignCalls = 0;
    uint64_t mControlsDone = 0;
};

int hearOutput(void* cookie, void* buffer, size_t byteCount) {
    return gHost->hear(*static_cast<Output*>(cookie), buffer, byteCount);
}

void takeHostLog(const __android_log_message* message) {
    if (gHost != nullptr) {
        gHost->takeLog(message->message);
    }
}

Host::Host(uint64_t seed, HostEnd end) : mRandom(seed ^ 0x5174), mEnd(end) {
    gHost = this;
    // Before the first pipeline: it runs after what the library does at the end of the process.
    static const int sIsWatched = atexit([] {
        if (gHost != nullptr) {
            gHost->mIsGone = true;
            run::sleepFor(kNsPerSecond / 4);
        }
    });
    (void)sIsWatched;
}

void Host::prepare() {
    static constexpr uint32_t kRates[] = {8000, 16000, 44100, 48000};
    mMix = {kRates[mRandom.below(4)],
            mRandom.below(2) == 0 ? STREAMPROXY_FORMAT_PCM_16_BIT : STREAMPROXY_FORMAT_PCM_32_BIT,
            STREAMPROXY_CHANNEL_MASK_STEREO, 0};
    mBlockFrames = mMix.sample_rate == 44100 ? 900 : mMix.sample_rate / 50;
    mRingFrames = mBlockFrames + mRandom.below(2 * mBlockFrames) + 64;
    property_set("persist.vendor.hwsync.fbuffer.size", std::to_string(mRingFrames).c_str());
    property_set("vendor.audio.hwsync.alead.threshold",
                 std::to_string(60 + mRandom.below(240)).c_str());
    property_set("vendor.audio.hwsync.vlead.threshold",
                 std::to_string(60 + mRandom.below(60)).c_str());
    mEndNs = static_cast<int64_t>(300 + mRandom.below(1500)) * kNsPerMs;
    mPacePercent = mRandom.below(4) == 0 ? static_cast<uint32_t>(mRandom.below(100)) : 100;
    mSlowRate = mRandom.below(3) == 0 ? 20'000 : 0;
    mFailRate = mRandom.below(3) == 0 ? 50'000 : 0;
    mInCallbackRate = mRandom.below(2) == 0 ? 100'000 : 0;
    mCallbackRandom = Random(mRandom.next());
    mMaxCallbackNs = (mSlowRate > 0 ? 250 : 20) * kNsPerMs + kNsPerMs;
    mCycleLimitNs = static_cast<int64_t>(kMaxOutputs) * mMaxCallbackNs;
    mIsChurning = mRandom.below(2) == 0;
    mSlotCount = 1 + mRandom.below(kMaxSlots);
    mFd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (size_t i = 0; i < kMaxOutputs; ++i) {
        mOutputs[i].index = i;
    }
}

int Host::hear(Output& output, void* buffer, size_t byteCount) {
    if (mIsGone || !output.isListed) {
        fault("output %zu hears a block %s", output.index,
              mIsGone ? "of a pipeline that was destroyed" : "although its removal has returned");
    }
    const bool isWide = mMix.format == STREAMPROXY_FORMAT_PCM_32_BIT;
    const size_t frameSize = isWide ? 8 : 4;
    const size_t frameCount = byteCount / frameSize;
    if (byteCount % frameSize != 0 || frameCount == 0 || frameCount > mBlockFrames) {
        fault("output %zu: a block of %zu bytes", output.index, byteCount);
    }
    if (output.index == 0) {
        ++mCycle;
        mBlock.assign(static_cast<const uint8_t*>(buffer),
                      static_cast<const uint8_t*>(buffer) + byteCount);
        for (size_t i = 1; i < kMaxOutputs; ++i) {
            const Output& other = mOutputs[i];
            if (other.isRegistered && other.isListed && mCycle >= other.from + 3 &&
                other.heardCycle + 1 < mCycle) {
                fault("output %zu: registered since cycle %" PRIu64
                      ", but did not hear cycle %" PRIu64,
                      i, other.from, mCycle - 1);
            }
        }
        mChannel.resize(frameCount);
        for (size_t channel = 0; channel < 2; ++channel) {
            for (size_t i = 0; i < frameCount; ++i) {
                if (isWide) {
                    const int32_t sample = static_cast<const int32_t*>(buffer)[2 * i + channel];
                    if (sample % (1 << NumberedStream::kWideShift) != 0) {
                        fault("a frame that nobody wrote: %d in channel %zu", sample, channel);
                    }
                    mChannel[i] = sample >> NumberedStream::kWideShift;
                } else {
                    mChannel[i] = static_cast<const int16_t*>(buffer)[2 * i + channel];
                }
            }
            NumberedStream* const known = mSlots[channel].known.get();
            if (known != nullptr && mSlots[channel].isNumbered) {
                const bool hasNewer =
                    std::any_of(mSlots.begin(), mSlots.end(), [&](const Slot& slot) {
                        return slot.known != nullptr && slot.known.get() != known &&
                               known->mayPrecede(*slot.known);
                    });
                known->hear(mChannel.data(), frameCount, mCycle, hasNewer);
            } else if (std::any_of(mChannel.begin(), mChannel.end(),
                                   [](int32_t sample) { return sample != 0; })) {
                fault("channel %zu: frames of a stream whose destruction has returned", channel);
            }
        }
    } else if (mOutputs[0].isListed && mOutputs[0].isRegistered &&
               (mBlock.size() != byteCount || memcmp(mBlock.data(), buffer, byteCount) != 0)) {
        fault("output %zu hears another block than the first", output.index);
    }
    output.heardCycle = mCycle;
    if (mCallbackRandom.happens(mInCallbackRate)) {
        callInCallback(mCallbackRandom);
    }
    if (mCallbackRandom.happens(mFailRate)) {
        return -EIO;
    }
    const auto durationNs =
        static_cast<int64_t>(frameCount) * kNsPerSecond / static_cast<int64_t>(mMix.sample_rate);
    if (mCallbackRandom.happens(mSlowRate)) {
        run::sleepFor(static_cast<int64_t>(mCallbackRandom.below(250)) * kNsPerMs);
    } else if (output.index == 0) {
        run::sleepFor(durationNs * mPacePercent / 100);
    }
    return 0;
}

void Host::takeLog(const char* message) {
    run::trace("cycle %" PRIu64 ": %s", mCycle, message);
    unsigned long byteCount = 0;
    if (strstr(message, "actually (") != nullptr) {
        for (Slot& slot : mSlots) {
            if (slot.known != nullptr) {
                slot.known->noteShort(mBlockFrames);
            }
        }
    } else if (sscanf(message, "onBurstPayloadParsed, drop bytes %lu", &byteCount) == 1 ||
               sscanf(message, "write, some bytes (%lu) are missed", &byteCount) == 1) {
        for (Slot& slot : mSlots) {
            if (slot.known != nullptr && slot.isTunnel) {
                slot.known->noteDropped(byteCount / slot.frameSize);
            }
        }
    } else if (strstr(message, "Try to release") != nullptr) {
        fault("%s", message);
    }
}

void Host::callInCallback(Random& random) {
    switch (random.below(5)) {
        case 0:
            expectStatus("destroy_audio_proxy_pipeline in a callback",
                         mLibrary.destroyPipeline(mPipeline), {-ENOSYS});
            break;
        case 1:
            if (mLibrary.createStream(&mMix) != nullptr) {
                fault("a callback created a stream");
            }
            break;
        case 2:
            expectStatus("unregister in a callback",
                         mLibrary.unregisterOutput(mPipeline, &mOutputs[0], &hearOutput),
                         {-ENOSYS});
            break;
        default: {
            Slot& slot = mSlots[random.below(mSlotCount)];
            if (slot.isAlive && !slot.isTunnel) {
                ++mForeignCalls;
                if (random.below(2) == 0) {
                    pause(slot);
                } else {
                    flush(slot);
                }
                --mForeignCalls;
            }
            break;
        }
    }
}

void Host::create(Slot& slot, size_t index, Random& random) {
    while (mForeignCalls > 0) {
        run::sleepFor(kNsPerMs);  // they may hold a handle that this stream gets
    }
    static constexpr uint32_t kRates[] = {8000, 22050, 44100, 48000, 96000};
    static constexpr uint32_t kMasks[] = {1, 3, 3, 0x3f};
    slot.isTunnel = random.below(3) == 0;
    slot.isNumbered = index < kNumberedSlots;
    slot.config = mMix;
    slot.config.format =
        random.below(2) == 0 ? STREAMPROXY_FORMAT_PCM_16_BIT : STREAMPROXY_FORMAT_PCM_32_BIT;
    if (!slot.isNumbered) {
        slot.config.sample_rate = kRates[random.below(5)];
        slot.config.channel_mask = kMasks[random.below(4)];
    }
    slot.config.flags = slot.isTunnel ? STREAMPROXY_FLAG_HW_AV_SYNC : 0;
    slot.frameSize = static_cast<size_t>(__builtin_popcount(slot.config.channel_mask)) *
                     (slot.config.format == STREAMPROXY_FORMAT_PCM_16_BIT ? 2 : 4);
    slot.ptsNs = 0;
    slot.latencyMs = 0;
    for (Slot& other : mSlots) {
        if (other.known != nullptr) {
            other.known->noteNewer();
        }
    }
    auto known = std::make_unique<NumberedStream>(index, slot.isTunnel, ++mCreationTime);
    slot.known = std::move(known);
    slot.stream = control("create_audio_proxy_stream", 0,
                          [&] { return mLibrary.createStream(&slot.config); });
    slot.known->endCreation(++mCreationTime);
    if (slot.stream == nullptr) {
        if (!mIsEnding) {
            fault("stream %zu: a stream that can be converted was refused", index);
        }
        slot.known.reset();
        return;
    }
    if (slot.isTunnel) {
        slot.clockId = kFirstClockId + static_cast<uint32_t>(index);
        slot.clock = AVSyncClock::forId(slot.clockId);
        const std::string id = "hw_av_sync=" + std::to_string(slot.clockId);
        expectStatus("audio_proxy_stream_set_parameters",
                     mLibrary.setParameters(slot.stream, id.c_str()), {0});
    }
    const auto ringUs = static_cast<uint32_t>(mRingFrames * 1000 / slot.config.sample_rate * 1000);
    const uint32_t latencyUs = mLibrary.getLatency(slot.stream);
    if (latencyUs != ringUs && !mIsEnding) {
        fault("stream %zu: its latency is %u us, its ring is %u us", index, latencyUs, ringUs);
    }
    slot.isAlive = true;
}

void Host::destroy(Slot& slot) {
    slot.isAlive = false;
    while (!mIsChurning && mForeignCalls > 0 && !mIsEnding) {
        run::sleepFor(kNsPerMs);
    }
    const uint64_t closesBefore = slot.closesDone;
    ++slot.closesBegun;
    const auto call = slot.known->beginClose();
    const int status = timed(
        "destroy_audio_proxy_stream",
        [&] {
            const auto others = static_cast<int64_t>(slot.closesBegun - closesBefore);
            return others * kNsPerSecond + 4 * mCycleLimitNs;
        },
        [&] { return mLibrary.destroyStream(slot.stream); });
    ++slot.closesDone;
    expectStatus("destroy_audio_proxy_stream", status, {0});
    slot.known->endClose(call, mCycle);
    if (!mIsEnding) {
        slot.known.reset();
        slot.stream = nullptr;
        slot.clock.clear();
    }
}

void Host::write(Slot& slot, Random& random, uint64_t frameCount) {
    NumberedStream& known = *slot.known;
    const size_t index = static_cast<size_t>(&slot - mSlots.data());
    const size_t headerSize = slot.isTunnel ? 20 : 0;
    std::vector<uint8_t> bytes(headerSize + frameCount * slot.frameSize);
    if (slot.isTunnel) {
        const uint32_t payload = static_cast<uint32_t>(frameCount * slot.frameSize);
        const uint8_t magic[] = {0x55, 0x55, 0, 2};
        memcpy(bytes.data(), magic, 4);
        for (size_t i = 0; i < 4; ++i) {
            bytes[4 + i] = static_cast<uint8_t>(payload >> (24 - 8 * i));
        }
        for (size_t i = 0; i < 8; ++i) {
            bytes[8 + i] = static_cast<uint8_t>(slot.ptsNs >> (56 - 8 * i));
        }
        bytes[19] = 20;
        slot.ptsNs += frameCount * kNsPerSecond / slot.config.sample_rate;
    }
    if (slot.isNumbered) {
        for (size_t i = 0; i < frameCount; ++i) {
            const int32_t sample = NumberedStream::encode(known.accepted() + i);
            uint8_t* const at =
                &bytes[headerSize + i * slot.frameSize + index * slot.frameSize / 2];
            if (slot.frameSize == 4) {
                const auto narrow = static_cast<int16_t>(sample);
                memcpy(at, &narrow, 2);
            } else {
                const int32_t wide = sample << NumberedStream::kWideShift;
                memcpy(at, &wide, 4);
            }
        }
    }
    (void)random;
    const uint64_t closesBefore = slot.closesDone;
    const uint64_t resumesBefore = slot.resumesBegun;
    const int64_t startNs = run::nowNs();
    const auto call = known.beginWrite(frameCount);
    const int result = timed(
        slot.isTunnel ? "audio_proxy_stream_write (tunnel)" : "audio_proxy_stream_write",
        [&] {
            const auto closes = static_cast<int64_t>(slot.closesBegun - closesBefore);
            const auto resumes = static_cast<int64_t>(slot.resumesBegun - resumesBefore);
            const int64_t plainNs = kNsPerSecond + 10 * kNsPerMs;
            // A silence and a payload, each once more after a pause that ended, and the close that
            // it waited for.
            return slot.isTunnel ? (2 + resumes) * plainNs + (1 + closes) * kNsPerSecond : plainNs;
        },
        [&] { return mLibrary.write(slot.stream, bytes.data(), bytes.size()); });
    if (mIsEnding) {
        return;
    }
    if (result < 0 || static_cast<size_t>(result) > bytes.size() ||
        (!slot.isTunnel && static_cast<size_t>(result) % slot.frameSize != 0)) {
        fault("stream %zu: a write of %zu bytes returned %d", index, bytes.size(), result);
    }
    if (!slot.isTunnel && static_cast<size_t>(result) < bytes.size() &&
        slot.closesBegun == closesBefore && run::nowNs() - startNs < kNsPerSecond - kNsPerMs) {
        fault("stream %zu: a write took %d of %zu bytes after %.6f s, although nothing closed it",
              index, result, bytes.size(), static_cast<double>(run::nowNs() - startNs) / 1e9);
    }
    known.endWrite(call, slot.isTunnel ? frameCount : static_cast<size_t>(result) / slot.frameSize,
                   mCycle);
}

void Host::open(Slot& slot) {
    const auto call = slot.known->beginOpen();
    const uint64_t closesBefore = slot.closesDone;
    const int status = timed(
        "audio_proxy_stream_open",
        [&] {
            const auto closes = static_cast<int64_t>(slot.closesBegun - closesBefore);
            return slot.isTunnel ? (1 + closes) * kNsPerSecond : 0;
        },
        [&] { return mLibrary.open(slot.stream); });
    expectStatus("audio_proxy_stream_open", status, {0, -ENODEV, -EINVAL});
    if (slot.known != nullptr) {
        slot.known->endOpen(call, status == 0, mCycle);
    }
}

void Host::pause(Slot& slot) {
    const auto call = slot.known->beginPause();
    const int status =
        quick("audio_proxy_stream_pause", [&] { return mLibrary.pause(slot.stream); });
    expectStatus("audio_proxy_stream_pause", status, {0, -EINVAL});
    if (slot.known != nullptr) {
        slot.known->endPause(call, mCycle);
    }
}

void Host::resume(Slot& slot) {
    ++slot.resumesBegun;
    const auto call = slot.known->beginOpen();
    const int status =
        quick("audio_proxy_stream_resume", [&] { return mLibrary.resume(slot.stream); });
    expectStatus("audio_proxy_stream_resume", status, {0, -EINVAL});
    if (slot.known != nullptr) {
        slot.known->endOpen(call, false, mCycle);
    }
}

void Host::flush(Slot& slot) {
    slot.known->beginDiscard();
    const int status =
        quick("audio_proxy_stream_flush", [&] { return mLibrary.flush(slot.stream); });
    expectStatus("audio_proxy_stream_flush", status, {0, -EINVAL});
    if (slot.known != nullptr) {
        slot.known->endDiscard(mCycle);
    }
}

void Host::close(Slot& slot) {
    const uint64_t closesBefore = slot.closesDone;
    ++slot.closesBegun;
    const auto call = slot.known->beginClose();
    const int status = timed(
        "audio_proxy_stream_close",
        [&] {
            const auto others = static_cast<int64_t>(slot.closesBegun - closesBefore);
            return others * kNsPerSecond;
        },
        [&] { return mLibrary.close(slot.stream); });
    ++slot.closesDone;
    expectStatus("audio_proxy_stream_close", status, {0, -EINVAL});
    if (slot.known != nullptr) {
        slot.known->endClose(call, mCycle);
    }
}

void Host::callStream(Slot& slot, Random& random) {
    const float gain = static_cast<float>(random.below(101)) / 100;
    switch (random.below(12)) {
        case 0:
        case 1:
            open(slot);
            break;
        case 2:
        case 3:
            pause(slot);
            break;
        case 4:
        case 5:
            resume(slot);
            break;
        case 6:
            flush(slot);
            break;
        case 7:
            close(slot);
            break;
        case 8:
            expectStatus("audio_proxy_stream_set_volume",
                         quick("audio_proxy_stream_set_volume",
                               [&] {
                                   return slot.isNumbered
                                              ? mLibrary.setVolume(slot.stream, 1, 1)
                                              : mLibrary.setVolume(slot.stream, gain, gain);
                               }),
                         {0, -EINVAL});
            break;
        case 9:
            quick("audio_proxy_stream_dump", [&] { return mLibrary.dump(slot.stream, mFd); });
            break;
        case 10:
            quick("audio_proxy_stream_set_parameters",
                  [&] { return mLibrary.setParameters(slot.stream, "volume=1;x"); });
            break;
        default:
            if (slot.isTunnel && slot.clock != nullptr) {
                slot.clock->jumpNs((static_cast<int64_t>(random.below(3000)) - 1500) * kNsPerMs);
            }
            break;
    }
}

void Host::setOutput(Output& output, bool isWanted) {
    if (isWanted == output.isRegistered) {
        return;
    }
    if (isWanted) {
        output.isListed = true;
        expectStatus(
            "audio_proxy_pipeline_register_output",
            control(
                "audio_proxy_pipeline_register_output", 0,
                [&] { return mLibrary.registerOutput(mPipeline, &mMix, &output, &hearOutput); }),
            {0});
        output.from = mCycle;
        output.heardCycle = std::max(output.heardCycle, mCycle);
        output.isRegistered = true;
    } else {
        output.isRegistered = false;
        expectStatus(
            "audio_proxy_pipeline_unregister_output",
            control("audio_proxy_pipeline_unregister_output", 0,
                    [&] { return mLibrary.unregisterOutput(mPipeline, &output, &hearOutput); }),
            {0});
        output.isListed = mIsEnding;
    }
}

void Host::changeOutputs(Random& random) {
    if (mIsOutputChanging) {
        return;
    }
    mIsOutputChanging = true;
    if (random.below(6) == 0) {
        // Another device of the same kind: nothing is mixed for a while.
        for (size_t i = kMaxOutputs; i-- > 0;) {
            setOutput(mOutputs[i], false);
        }
        run::sleepFor(static_cast<int64_t>(random.below(100)) * kNsPerMs);
        setOutput(mOutputs[0], true);
    } else {
        Output& output = mOutputs[1 + random.below(kMaxOutputs - 1)];
        setOutput(output, !output.isRegistered);
    }
    mIsOutputChanging = false;
}

void Host::checkLatencyOffset(Random& random) {
    for (size_t i = 0; i < mSlotCount; ++i) {
        Slot& slot = mSlots[i];
        if (!slot.isAlive || !slot.isTunnel) {
            continue;
        }
        ++mForeignCalls;
        const sp<AVSyncClock> clock = slot.clock;
        const uint64_t creation = slot.known->creationBegan();
        const auto latencyMs = static_cast<unsigned long>(50 + random.below(50));
        const auto offsetMs = static_cast<long>(random.below(80)) - 40;
        quick("audio_proxy_stream_set_downstream_latency",
              [&] { return mLibrary.setDownstreamLatency(slot.stream, latencyMs, 0); });
        const std::string pair = "set_audio_delay=" + std::to_string(offsetMs);
        control("audio_proxy_pipeline_set_parameters", 0,
                [&] { return mLibrary.setPipelineParameters(mPipeline, pair.c_str()); });
        run::sleepFor(mCycleLimitNs + 2 * kNsPerMs);
        const auto wantedNs =
            static_cast<uint64_t>((static_cast<long>(latencyMs) + offsetMs) * kNsPerMs);
        const bool isSame = slot.isAlive && slot.known->creationBegan() == creation;
        --mForeignCalls;
        if (isSame && !mIsEnding && clock->latencyNs() != wantedNs) {
            fault("stream %zu: a latency of %lu ms with an offset of %ld ms is %" PRIu64
                  " ns at its clock a cycle later",
                  i, latencyMs, offsetMs, clock->latencyNs());
        }
        return;
    }
}

void Host::callPipeline(Random& random) {
    switch (random.below(4)) {
        case 0:
            timed(
                "audio_proxy_pipeline_dump", [] { return 210 * kNsPerMs; },
                [&] { return mLibrary.dumpPipeline(mPipeline, mFd); });
            break;
        case 1:
            if (!mIsEnding && mLibrary.createPipeline() != mPipeline && !mIsEnding) {
                fault("there is a second pipeline");
            }
            break;
        default:
            changeOutputs(random);
            break;
    }
}

void Host::controlLoop(uint64_t seed) {
    Random random(seed);
    pthread_setname_np(pthread_self(), ("control " + std::to_string(seed % 2)).c_str());
    const uint64_t everyMs = 1 + random.below(120);
    const bool ownsLatency = seed % 2 == 0;
    while (!isStopping()) {
        run::sleepFor(static_cast<int64_t>(random.below(everyMs * 1000) + 1) * 1000);
        if (isStopping()) {
            return;
        }
        const auto choice = random.below(100);
        if (choice < 15) {
            callPipeline(random);
        } else if (choice < 25 && ownsLatency) {
            checkLatencyOffset(random);
        } else {
            Slot& slot = mSlots[random.below(mSlotCount)];
            if (slot.isAlive) {
                ++mForeignCalls;
                callStream(slot, random);
                --mForeignCalls;
            }
        }
    }
}

void Host::writeLoop(size_t index, uint64_t seed) {
    Random random(seed);
    pthread_setname_np(pthread_self(), ("writer " + std::to_string(index)).c_str());
    Slot& slot = mSlots[index];
    const auto style = random.below(4);
    const double drift = 0.99 + 0.0001 * static_cast<double>(random.below(200));
    while (!isStopping()) {
        create(slot, index, random);
        if (!slot.isAlive) {
            return;
        }
        int64_t dueNs = run::nowNs();
        const uint64_t writes = 5 + random.below(100);
        for (uint64_t i = 0; i < writes && !isStopping(); ++i) {
            const uint64_t most = random.below(20) == 0 ? 3 * mRingFrames : mBlockFrames;
            const uint64_t frameCount =
                1 + random.below(most * slot.config.sample_rate / mMix.sample_rate + 1);
            write(slot, random, frameCount);
            dueNs += static_cast<int64_t>(static_cast<double>(frameCount) * 1e9 * drift /
                                          slot.config.sample_rate);
            if (style == 1) {
                run::sleepFor(std::max<int64_t>(dueNs - run::nowNs(), 0));
            } else if (style == 2 && random.below(10) == 0) {
                run::sleepFor(static_cast<int64_t>(random.below(250)) * kNsPerMs);
            } else if (random.below(50) == 0 && !mIsEnding) {
                pause(slot);
                run::sleepFor(static_cast<int64_t>(random.below(50)) * kNsPerMs);
            }
        }
        if (mIsEnding || (isStopping() && random.below(2) == 0)) {
            return;
        }
        if (random.below(2) == 0 && !mIsEnding) {
            flush(slot);
        }
        if (!mIsEnding) {
            destroy(slot);
        }
    }
}

// With every stream but one paused, that one is heard to its last frame.
void Host::expectDrained() {
    mSlowRate = 0;
    mFailRate = 0;
    mInCallbackRate = 0;
    if (!mOutputs[0].isRegistered) {
        return;
    }
    for (Slot& slot : mSlots) {
        if (slot.isAlive) {
            pause(slot);
        }
    }
    run::sleepFor(2 * mCycleLimitNs);
    for (Slot& slot : mSlots) {
        if (slot.isAlive && slot.isNumbered && !slot.isTunnel) {
            open(slot);
            run::sleepFor(kNsPerSecond);
            slot.known->expectAllHeard();
            pause(slot);
        }
    }
}

void Host::endAll(Random& random) {
    if (random.below(4) != 0) {
        for (Slot& slot : mSlots) {
            if (slot.isAlive) {
                destroy(slot);
            }
        }
    }
    if (random.below(2) == 0) {
        for (size_t i = kMaxOutputs; i-- > 0;) {
            setOutput(mOutputs[i], false);
        }
    }
    mIsEnding = true;
    control("destroy_audio_proxy_pipeline", 0, [&] { return mLibrary.destroyPipeline(mPipeline); });
    mIsGone = true;
    // The registry outlives the pipeline.
    mPipeline = mLibrary.createPipeline();
    for (Output& output : mOutputs) {
        mLibrary.unregisterOutput(mPipeline, &output, &hearOutput);
    }
    mLibrary.destroyPipeline(mPipeline);
}

void Host::live() {
    prepare();
    mPipeline = mLibrary.createPipeline();
    if (mPipeline == nullptr) {
        fault("no pipeline");
    }
    std::vector<std::thread> threads;
    const bool isOutputFirst = mRandom.below(2) == 0;
    if (isOutputFirst) {
        setOutput(mOutputs[0], true);
    }
    for (size_t i = 0; i < mSlotCount; ++i) {
        threads.emplace_back(&Host::writeLoop, this, i, mRandom.next());
    }
    const uint64_t controlCount = 1 + mRandom.below(2);
    for (uint64_t i = 0; i < controlCount; ++i) {
        threads.emplace_back(&Host::controlLoop, this, mRandom.next() / 2 * 2 + i);
    }
    if (!isOutputFirst) {
        mIsOutputChanging = true;
        setOutput(mOutputs[0], true);
        mIsOutputChanging = false;
    }
    if (mEnd == HostEnd::EXIT || mEnd == HostEnd::FORK) {
        run::sleepFor(static_cast<int64_t>(mRandom.below(static_cast<uint64_t>(mEndNs))));
        if (mEnd == HostEnd::FORK) {
            forkOnce();
        }
        mIsEnding = true;
        exit(0);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (mEnd == HostEnd::UNLOAD) {
        mIsEnding = true;
        for (Slot& slot : mSlots) {
            slot.clock.clear();
        }
        if (!Library::unload()) {
            fault("the library stays loaded");
        }
        mIsGone = true;
        run::sleepFor(kNsPerSecond);
        ::close(mFd);
        return;
    }
    if (mRandom.below(2) == 0) {
        expectDrained();
    }
    endAll(mRandom);
    run::sleepFor(kNsPerSecond);
    ::close(mFd);
}

void Host::forkOnce() {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const bool isRefused = mLibrary.createPipeline() == nullptr &&
                               mLibrary.createStream(&mMix) == nullptr &&
                               mLibrary.destroyPipeline(mPipeline) == -EINVAL;
        mIsEnding = true;
        exit(isRefused ? 0 : run::kFaultStatus);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        fault("a forked process ended with status 0x%x", static_cast<unsigned>(status));
    }
}

}  // namespace

void runHost(uint64_t seed, HostEnd end) {
    __android_log_set_logger(takeHostLog);
    Host host(seed, end);
    host.live();
    __android_log_set_logger(nullptr);
}
