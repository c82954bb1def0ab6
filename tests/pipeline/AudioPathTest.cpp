// The mixer thread breaks no rule of the audio path: first the guard itself, then a pipeline under
// churn, and a busy one without system calls.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <memory>

#include "tests/support/Eventually.h"
#include "tests/support/FakeOutput.h"
#include "tests/support/GuardedMixer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SyscallTrap.h"

using namespace android;

namespace {

sp<AudioStream> makeStream(uint32_t rateHz, audio_format_t format, uint32_t channelMask,
                           size_t bufferFrameCount) {
    return new AudioStream(rateHz, format, channelMask, AUDIO_OUTPUT_FLAG_NONE, bufferFrameCount);
}

#ifdef STREAMPROXY_GUARDED

struct NoWaits final : AudioPathGuard::WaitList {
    bool mayWaitFor(const void* mutex) const override { return mutex == allowed; }
    const void* allowed = nullptr;
};

std::vector<std::string>* sReported = nullptr;

TEST(AudioPathGuard, ReportsWhatTheMixerThreadMustNotDo) {
    std::mutex taken;
    std::atomic<int> word{0};
    const size_t byteCount = 100;
    const auto use = [](void* storage) {
        asm volatile("" : "+r"(storage));  // or the compiler sees that nobody uses it
        return storage;
    };
    NoWaits waits;
    void* const old = malloc(byteCount);
    const timespec now = {};
    const timespec past = {.tv_sec = 1, .tv_nsec = 0};
    char byte = 0;
    void* made = nullptr;
    FILE* const nowhere = fopen("/dev/null", "w");
    pthread_mutex_t* const native = taken.native_handle();
    const auto lockTaken = [&taken] { const std::lock_guard<std::mutex> lock(taken); };
    const auto awaitSignal = [](auto wait) {
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_cond_t unsignalled = PTHREAD_COND_INITIALIZER;
        pthread_mutex_lock(&mutex);
        wait(&unsignalled, &mutex);
    };
    const auto lockOwn = [](auto lock) {  // refused: it would wait for itself
        pthread_rwlock_t own = PTHREAD_RWLOCK_INITIALIZER;
        pthread_rwlock_wrlock(&own);
        lock(&own);
    };
    const std::pair<const char*, std::function<void()>> deeds[] = {
        {"malloc", [&] { free(use(malloc(byteCount))); }},
        {"malloc", [&] { delete new std::string(byteCount, 'x'); }},
        {"calloc", [&] { free(use(calloc(1, byteCount))); }},
        {"realloc", [&] { free(use(realloc(use(nullptr), byteCount))); }},
        {"aligned_alloc", [&] { free(use(aligned_alloc(64, 64 * byteCount))); }},
        {"memalign", [&] { free(use(memalign(64, byteCount))); }},
        {"posix_memalign", [&] { free(posix_memalign(&made, 64, 1) == 0 ? made : nullptr); }},
        {"free", [&] { free(old); }},
        {"open", [&] { close(open("/dev/null", O_RDONLY)); }},
        {"fopen", [&] { fclose(fopen("/dev/null", "r")); }},
        {"fwrite", [&] { fwrite(&now, sizeof now, 1, nowhere); }},  // one byte were an fputc()
        {"read", [&] { (void)!read(-1, &byte, 1); }},
        {"write", [&] { (void)!write(-1, &byte, 1); }},
        {"pthread_mutex_lock", lockTaken},
        {"pthread_mutex_timedlock", [&] { pthread_mutex_timedlock(native, &past); }},
        {"pthread_mutex_clocklock",
         [&] { pthread_mutex_clocklock(native, CLOCK_MONOTONIC, &past); }},
        {"pthread_rwlock_rdlock", [&] { lockOwn(pthread_rwlock_rdlock); }},
        {"pthread_rwlock_wrlock", [&] { lockOwn(pthread_rwlock_wrlock); }},
        {"pthread_cond_timedwait",
         [&] { awaitSignal([&](auto... on) { pthread_cond_timedwait(on..., &past); }); }},
        {"pthread_cond_clockwait",
         [&] {
             awaitSignal(
                 [&](auto... on) { pthread_cond_clockwait(on..., CLOCK_MONOTONIC, &past); });
         }},
        {"nanosleep", [&] { nanosleep(&now, nullptr); }},
        {"clock_nanosleep", [&] { clock_nanosleep(CLOCK_MONOTONIC, 0, &now, nullptr); }},
        {"futex to wait", [&] { syscall(SYS_futex, &word, FUTEX_WAIT, 0, &now, nullptr, 0); }},
        {"", [&] { syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0); }},
        {"",
         [&] {
             const AudioPathGuard::HostCode host;
             free(use(malloc(byteCount)));
         }},
        {"",
         [&] {
             waits.allowed = taken.native_handle();
             lockTaken();
         }},
    };
    std::vector<std::string> reported;
    sReported = &reported;
    AudioPathGuard::sReport = [](const char* what) { sReported->emplace_back(what); };
    for (const auto& [expected, deed] : deeds) {
        reported.clear();
        std::atomic<bool> held{false};
        std::thread holder([&] {
            const std::lock_guard<std::mutex> lock(taken);
            held = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        });
        std::thread mixer([&, &deed = deed] {
            eventually([&held] { return held.load(); });
            const AudioPathGuard::Cycle cycle(waits);
            AudioPathGuard::watch(true);
            deed();
            AudioPathGuard::watch(false);
        });
        mixer.join();
        holder.join();
        EXPECT_EQ(expected, reported.empty() ? "" : reported[0]);
    }
    AudioPathGuard::sReport = nullptr;
    fclose(nowhere);
}

#endif

class AudioPathTest : public testing::Test {
protected:
    ~AudioPathTest() override {
        mDone = true;
        for (std::thread& thread : mThreads) {
            thread.join();
        }
        mMixer->exit();
    }
    /** Repeats `work` on its own thread until the test ends. */
    void keep(std::function<void(unsigned turn)> work) {
        mThreads.emplace_back([this, work = std::move(work)] {
            for (unsigned turn = 0; !mDone; ++turn) {
                work(turn);
            }
        });
    }

    const sp<GuardedMixer> mMixer{new GuardedMixer()};
    const std::vector<int16_t> mAudio = std::vector<int16_t>(240000, 100);
    LogCapture mLog;
    std::atomic<bool> mDone{false};
    std::vector<std::thread> mThreads;
};

TEST_F(AudioPathTest, StreamChurnAndMixChangesPassTheGuard) {
    std::vector<sp<AudioStream>> steady = {
        makeStream(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 2000),
        makeStream(44100, AUDIO_FORMAT_PCM_32_BIT, AUDIO_CHANNEL_OUT_STEREO, 2000),
        makeStream(96000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO, 4000)};
    for (const auto& stream : steady) {
        ASSERT_EQ(OK, mMixer->addStream(stream));
        keep([this, stream](unsigned) { stream->write(mAudio.data(), 2000); });
        keep([stream](unsigned turn) {
            stream->setVolume(turn % 2 != 0 ? 1.0F : 0.5F, 1.0F);
            stream->dump(-1);
            if (turn % 16 == 0) {
                stream->flush();
                stream->pause();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        });
    }
    // The worker gives a tunnel stream's bridge a new offset while others give it a latency.
    const sp<TunnelStream> tunnel(new TunnelStream(48000, AUDIO_FORMAT_PCM_16_BIT,
                                                   AUDIO_CHANNEL_OUT_STEREO,
                                                   AUDIO_OUTPUT_FLAG_HW_AV_SYNC, 2000));
    ASSERT_EQ(OK, mMixer->addStream(tunnel));
    EXPECT_EQ(OK, tunnel->setParameters("hw_av_sync=2"));
    keep([tunnel](unsigned turn) { tunnel->setDownstreamLatency(turn % 50, 0); });
    // More and more streams at once: the worker's list of a cycle's streams must grow as well.
    keep([&](unsigned turn) {
        std::vector<sp<AudioStream>> passing(turn % 24);
        for (auto& stream : passing) {
            stream = makeStream(44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 1000);
            EXPECT_EQ(OK, mMixer->addStream(stream));
            stream->write(mAudio.data(), 4000);
            mMixer->updateLatencyOffset(static_cast<long>(turn));
        }
        for (const auto& stream : passing) {
            stream->flush();  // or the close waits its second: one without data stops the others
            stream->close();
            mMixer->removeStream(stream);
        }
    });
    const std::pair<uint32_t, uint32_t> mixes[] = {{48000, 1}, {44100, 1}, {48000, 3}, {96000, 1}};
    for (int turn = 0; turn < 40; ++turn) {
        const auto& [rateHz, format] = mixes[turn % 4];
        const sp<FakeOutput> output(new FakeOutput(rateHz, format));
        output->letRun();
        ASSERT_EQ(OK, mMixer->registerOutput(output.get()));
        EXPECT_TRUE(eventually([&output] { return output->blockCount() >= 3; })) << turn;
        mMixer->unregisterOutput(output.get());
    }
}

#ifdef STREAMPROXY_GUARDED

/** Traps the worker's system calls between two blocks. */
class TrappingOutput : public AudioOutput {
public:
    explicit TrappingOutput(int deliberateCall)
        : AudioOutput(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO,
                      AUDIO_OUTPUT_FLAG_NONE),
          mDeliberateCall(deliberateCall) {}

    ssize_t onDataProcessed(void* /*buffer*/, size_t /*byteCount*/) override {
        SyscallTrap::release();
        if (++mBlocks == 1) {
            mIsTrapped = SyscallTrap::install();
        }
        if (mIsTrapped && mBlocks >= 2 && mBlocks < kLastBlock) {
            SyscallTrap::set();
            if (mBlocks == mDeliberateCall) {
                syscall(SYS_getppid);
            }
        }
        return 0;
    }

    static constexpr int kLastBlock = 50;
    std::atomic<int> mBlocks{0};
    std::atomic<bool> mIsTrapped{false};

private:
    const int mDeliberateCall;
};

class BusyMixerTest : public AudioPathTest {
protected:
    // The number of blocks, of fifty in a row, after which the worker made a system call.
    int callsWithin(int deliberateCall) {
        const auto play = [&](uint32_t rateHz, audio_format_t format, uint32_t mask, size_t bytes) {
            const sp<AudioStream> stream(makeStream(rateHz, format, mask, 120000));
            EXPECT_EQ(OK, mMixer->addStream(stream));
            stream->setVolume(0.5F, 0.25F);  // a ramp over all of it
            EXPECT_EQ(bytes, stream->write(mAudio.data(), bytes));
        };
        play(48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 60000 * 4);
        play(44100, AUDIO_FORMAT_PCM_32_BIT, AUDIO_CHANNEL_OUT_STEREO, 60000 * 8);
        play(96000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO, 120000 * 2);
        const sp<TrappingOutput> output(new TrappingOutput(deliberateCall));
        SyscallTrap::sCalls = 0;
        EXPECT_EQ(OK, mMixer->registerOutput(output.get()));
        EXPECT_TRUE(eventually([&] { return output->mBlocks >= TrappingOutput::kLastBlock; }));
        mMixer->unregisterOutput(output.get());
        return output->mIsTrapped ? SyscallTrap::sCalls.load() : -1;
    }
};

TEST_F(BusyMixerTest, MakesNoSystemCallWhileNoWriterWaits) {
    const int calls = callsWithin(0);
    if (calls < 0) {
        GTEST_SKIP() << "the kernel does not hand system calls to the program";
    }
    EXPECT_EQ(0, calls) << "the last was number " << SyscallTrap::sLastNumber;
}

TEST_F(BusyMixerTest, TheTrapSeesASingleCall) {
    const int calls = callsWithin(30);
    if (calls < 0) {
        GTEST_SKIP() << "the kernel does not hand system calls to the program";
    }
    EXPECT_EQ(1, calls);
    EXPECT_EQ(SYS_getppid, SyscallTrap::sLastNumber);
}

#endif

}  // namespace
