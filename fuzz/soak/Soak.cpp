// Runs the whole pipeline for a long time under random use by several threads, and follows every
// frame. Ends at the first frame that is lost, repeated or out of order, when nothing moves for ten
// seconds, or when memory grows.

#include <malloc.h>

#include <cinttypes>
#include <cmath>
#include <memory>

#include "android/log.h"
#include "avsync/AVSyncClock.h"
#include "cutils/properties.h"
#include "fuzz/soak/RingChurn.h"
#include "fuzz/soak/SoakStream.h"
#include "tests/support/Bursts.h"

using namespace android;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

constexpr size_t kActors = 4;
constexpr size_t kSlots = 8;  // streams an actor
constexpr seconds kRound{3};
static_assert(kActors * kSlots <= SequencedFrames::kMaxStreams);

std::atomic<uint64_t> gAnnouncedLoss{0};  // bytes that the log says were dropped or found no room

void takeLog(const __android_log_message* message) {
    unsigned long byteCount = 0;
    if (sscanf(message->message, "onBurstPayloadParsed, drop bytes %lu", &byteCount) == 1 ||
        sscanf(message->message, "write, some bytes (%lu) are missed", &byteCount) == 1) {
        gAnnouncedLoss += byteCount;
    }
    // A stage or a flush has moved another's ring position.
    if (strstr(message->message, "Try to release") != nullptr) {
        soakFail("%s", message->message);
    }
}

/** A host's stream, whatever its class. */
class Slot {
public:
    virtual ~Slot() = default;
    virtual void act(Random& random) = 0;
};

template <typename Base>
class StreamSlot : public Slot {
public:
    using Stream = SoakStream<Base>;

    StreamSlot(const sp<SoakMixer>& mixer, SoakLedger& ledger, const SoakConfig& config,
               bool isWideMix)
        : mMixer(mixer),
          mConfig(config),
          mIsFollowed(config.sampleRate == config.mixRate &&
                      config.channelMask == AUDIO_CHANNEL_OUT_STEREO),
          mStream(new Stream(*mixer, ledger, config, mIsFollowed, isWideMix)) {
        ledger.streams += 1;
        if (mMixer->addStream(mStream) != OK) {
            soakFail("a stream that can be converted was refused");
        }
        if (Stream::kIsTunnel) {
            mStream->setParameters("hw_av_sync=1");
        }
    }
    ~StreamSlot() override {
        if (!Stream::kIsTunnel && mConfig.frameCount % 64 == 0) {
            mStream->close();  // waits until the mixer takes some
        } else if (!Stream::kIsTunnel) {
            mStream->flush();
            mStream->close();
        }
        mMixer->removeStream(mStream);
        mStream->settle();
    }

    void act(Random& random) override {
        const auto choice = random() % 100;
        if (choice < 88) {
            // Sometimes more than fits: the write waits for the mixer.
            const uint64_t most = random() % 10000 == 0 ? 6000 : mStream->room();
            if (most > 0) {
                write(most - random() % (random() % 4 == 0 ? most : most / 2 + 1));
            }
        } else if (choice < 91) {
            mStream->pause();
        } else if (choice == 93 && !Stream::kIsTunnel && random() % 2 == 0) {
            mStream->flush();
        } else if (choice == 94 && !Stream::kIsTunnel && random() % 50 == 0) {
            mStream->close();
        } else if (choice < 97) {
            mStream->setDownstreamLatency(random() % 50, 0);
        } else {
            mStream->resume();
        }
        // A source that has ended mostly makes way for the others.
        if (mStream->wasStarved() && random() % 8 != 0) {
            mStream->pause();
        }
    }

private:
    void write(size_t frameCount) {
        mStream->open();
        const size_t channelCount = audio_channel_count_from_out_mask(mConfig.channelMask);
        const bool isWide = mConfig.format == AUDIO_FORMAT_PCM_32_BIT;
        std::vector<uint8_t> bytes =
            isWide ? SequencedFrames::make<int32_t>(mStream->accepted(), frameCount)
                   : SequencedFrames::make<int16_t>(mStream->accepted(), frameCount);
        const size_t frameSize = channelCount * (isWide ? 4 : 2);
        bytes.resize(frameCount * frameSize);
        if constexpr (Stream::kIsTunnel) {
            // Within the bounds of 20 ms, mostly.
            const auto leadMs = static_cast<int64_t>(mLead() % (mLead() % 40 == 0 ? 80 : 30));
            const auto ptsNs = static_cast<uint64_t>(
                std::max<int64_t>(0, static_cast<int64_t>(mClock->positionNs()) +
                                         (leadMs - (leadMs < 30 ? 15 : 40)) * 1'000'000));
            const Bytes burst = makeBurst({.ptsNs = ptsNs}, bytes);
            mStream->write(burst.data(), burst.size());
            mStream->accept(frameCount);
        } else {
            const int byteCount = mStream->write(bytes.data(), bytes.size());
            mStream->accept(static_cast<size_t>(byteCount) / frameSize);
        }
    }

    const sp<SoakMixer> mMixer;
    const SoakConfig mConfig;
    const bool mIsFollowed;
    const sp<Stream> mStream;
    const sp<AVSyncClock> mClock = AVSyncClock::forId(1);
    Random mLead;
};

struct Round {
    uint32_t mixRate;
    bool isWideMix;
    steady_clock::time_point end;
};

std::unique_ptr<Slot> makeSlot(const sp<SoakMixer>& mixer, SoakLedger& ledger, const Round& round,
                               Random& random) {
    constexpr uint32_t kRates[] = {8000, 16000, 22050, 32000, 44100, 48000, 88200, 96000};
    const bool isTunnel = random() % 5 == 0;
    SoakConfig config = {.sampleRate = round.mixRate,
                         .format = AUDIO_FORMAT_PCM_16_BIT,
                         .channelMask = AUDIO_CHANNEL_OUT_STEREO,
                         .frameCount = 500 + random() % 4000,
                         .mixRate = round.mixRate};
    if (!isTunnel) {
        config.format = random() % 3 == 0 ? AUDIO_FORMAT_PCM_32_BIT : AUDIO_FORMAT_PCM_16_BIT;
        if (random() % 3 == 0) {
            config.sampleRate = kRates[random() % std::size(kRates)];
            config.channelMask =
                random() % 2 == 0 ? AUDIO_CHANNEL_OUT_MONO : AUDIO_CHANNEL_OUT_STEREO;
        }
        return std::make_unique<StreamSlot<AudioStream>>(mixer, ledger, config, round.isWideMix);
    }
    return std::make_unique<StreamSlot<TunnelStream>>(mixer, ledger, config, round.isWideMix);
}

void act(const sp<SoakMixer>& mixer, SoakLedger& ledger, const Round& round, uint32_t seed) {
    Random random(seed);
    std::unique_ptr<Slot> slots[kSlots];
    const sp<AudioOutput> spare(new SoakOutput(
        round.mixRate, round.isWideMix ? AUDIO_FORMAT_PCM_32_BIT : AUDIO_FORMAT_PCM_16_BIT, seed));
    while (steady_clock::now() < round.end) {
        std::unique_ptr<Slot>& slot = slots[random() % kSlots];
        const auto choice = random() % 2000;
        if (slot == nullptr) {
            slot = makeSlot(mixer, ledger, round, random);
        } else if (choice == 0) {
            slot.reset();
        } else if (choice < 4) {
            (void)(choice % 2 == 0 ? mixer->registerOutput(spare) : mixer->unregisterOutput(spare));
        } else if (choice == 4) {
            mixer->updateLatencyOffset(static_cast<long>(random() % 20));
        } else {
            slot->act(random);
        }
        ledger.steps += 1;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 100));
    }
    mixer->unregisterOutput(spare);
}

void runRound(SoakLedger& ledger, Random& random) {
    const uint32_t mixRates[] = {44100, 48000, 16000};
    const Round round = {.mixRate = mixRates[random() % std::size(mixRates)],
                         .isWideMix = random() % 2 == 0,
                         .end = steady_clock::now() + kRound};
    const size_t wraps[] = {0, 0x7fffffff - 200, 0xffffffff - 200, 0xffffffff - 7};
    std::vector<std::unique_ptr<RingChurn>> rings;
    for (const size_t position : {wraps[random() % 2], wraps[2 + random() % 2]}) {
        rings.push_back(std::make_unique<RingChurn>(2 + random() % 200, random() % 2 == 0, position,
                                                    random(), ledger));
    }
    const sp<SoakMixer> mixer(new SoakMixer(ledger));
    const sp<AudioOutput> output(new SoakOutput(
        round.mixRate, round.isWideMix ? AUDIO_FORMAT_PCM_32_BIT : AUDIO_FORMAT_PCM_16_BIT,
        random()));
    if (mixer->registerOutput(output) != OK) {
        soakFail("the output was refused");
    }
    std::vector<std::thread> actors;
    for (size_t i = 0; i < kActors; ++i) {
        actors.emplace_back(act, mixer, std::ref(ledger), round, random());
    }
    for (std::thread& actor : actors) {
        actor.join();
    }
    mixer->exit();
}

void checkBooks(const SoakLedger& ledger) {
    const uint64_t gone =
        ledger.delivered + ledger.discarded + ledger.flushed + ledger.dropped + ledger.held;
    if (gone != ledger.accepted) {
        soakFail("%" PRIu64 " frames accepted, %" PRIu64 " accounted for", ledger.accepted.load(),
                 gone);
    }
    if (ledger.dropped * 4 > gAnnouncedLoss) {
        soakFail("%" PRIu64 " frames of tunnel streams are missing, %" PRIu64 " were announced",
                 ledger.dropped.load(), gAnnouncedLoss.load() / 4);
    }
}

void watch(const SoakLedger& ledger, const std::atomic<bool>& done) {
    uint64_t seen = 0;
    for (int stillFor = 0; !done; ++stillFor) {
        std::this_thread::sleep_for(milliseconds(100));
        const uint64_t pulse = ledger.steps + ledger.cycles;
        stillFor = pulse != seen ? 0 : stillFor;
        seen = pulse;
        if (stillFor > 100) {
            soakFail("nothing has moved for ten seconds");
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? strtod(argv[1], nullptr) : 1;
    const auto seed = static_cast<uint32_t>(argc > 2 ? strtoul(argv[2], nullptr, 10) : 1);
    if (!(minutes > 0) || argc > 3) {
        fprintf(stderr, "usage: %s [MINUTES [SEED]]\n", argv[0]);
        return 2;
    }
    __android_log_set_logger(takeLog);
    property_set("vendor.audio.hwsync.alead.threshold", "20");
    property_set("vendor.audio.hwsync.vlead.threshold", "20");
    SoakLedger ledger;
    std::atomic<bool> done{false};
    std::thread watchdog([&] { watch(ledger, done); });
    Random random(seed);
    const auto start = steady_clock::now();
    const auto end = start + std::chrono::duration<double, std::ratio<60>>(minutes);
    size_t baseline = 0;
    for (int round = 1; round == 1 || steady_clock::now() < end; ++round) {
        runRound(ledger, random);
        checkBooks(ledger);
        const size_t liveBytes = mallinfo2().uordblks;
        // The first rounds grow what is kept for good: thread caches, the clock's record.
        baseline = round <= 3 ? std::max(baseline, liveBytes) : baseline;
        if (liveBytes > baseline + (1 << 20)) {
            soakFail("memory grew from %zu to %zu bytes", baseline, liveBytes);
        }
        printf("\r%6.0f s, round %d: %" PRIu64 " streams, %" PRIu64 " cycles, %.1f M frames",
               std::chrono::duration<double>(steady_clock::now() - start).count(), round,
               ledger.streams.load(), ledger.cycles.load(),
               static_cast<double>(ledger.accepted.load()) / 1e6);
        fflush(stdout);
    }
    done = true;
    watchdog.join();
    printf("\nframes accepted %" PRIu64 " = delivered %" PRIu64
           " + discarded by a short cycle %" PRIu64 " + flushed %" PRIu64 " + dropped %" PRIu64
           " + held %" PRIu64 "\n",
           ledger.accepted.load(), ledger.delivered.load(), ledger.discarded.load(),
           ledger.flushed.load(), ledger.dropped.load(), ledger.held.load());
    printf("and %" PRIu64 " frames of streams that change rate or channels\n",
           ledger.converted.load());
    return 0;
}
