#include "pipeline/MixerThread.h"

#include <gtest/gtest.h>

#include "pipeline/AudioPipeline.h"
#include "tests/support/Dump.h"
#include "tests/support/Eventually.h"
#include "tests/support/FakeOutput.h"
#include "tests/support/FakeStream.h"
#include "tests/support/GuardedMixer.h"
#include "tests/support/LogCapture.h"

using namespace android;

namespace {

using Config = FakeStream::Config;

class MixerThreadTest : public testing::Test {
protected:
    ~MixerThreadTest() override {
        mOutput->letRun();
        mMixer->exit();
    }

    sp<FakeStream> addOpenStream(std::vector<int> frameCounts, int16_t value) {
        const sp<FakeStream> stream(new FakeStream(std::move(frameCounts), value));
        stream->open();
        EXPECT_EQ(OK, mMixer->addStream(stream.get()));
        return stream;
    }
    int64_t sleepNs() NO_THREAD_SAFETY_ANALYSIS { return mMixer->computeSleepTimeNs_l(); }

    // The first blocks of the output; the worker then waits in its callback.
    std::vector<FakeOutput::Block> hear(size_t blockCount) {
        EXPECT_EQ(OK, mMixer->registerOutput(mOutput.get()));
        return mOutput->takeBlocks(blockCount);
    }

    const sp<MixerThread> mMixer{new GuardedMixer()};
    const sp<FakeOutput> mOutput{new FakeOutput()};
    LogCapture mLog;
};

TEST_F(MixerThreadTest, MixesEveryOpenStreamIntoOneBlockForEveryOutput) {
    addOpenStream({960}, 100);
    addOpenStream({960}, 23);
    const sp<FakeStream> closed(new FakeStream({960}, 999));
    EXPECT_EQ(OK, mMixer->addStream(closed.get()));
    const sp<FakeOutput> second(new FakeOutput());
    second->letRun();
    EXPECT_EQ(OK, mMixer->registerOutput(second.get()));
    EXPECT_EQ(10'000'000, sleepNs());
    for (const auto& block : hear(3)) {
        EXPECT_EQ(FakeOutput::Block(1920, 123), block);
    }
    EXPECT_GE(second->blockCount(), 3U);
    EXPECT_TRUE(closed->asked().empty());
}

TEST_F(MixerThreadTest, AShortStreamShortensTheBlockAndEveryLaterStream) {
    addOpenStream({960}, 1);
    addOpenStream({500, 960}, 2);
    const auto last = addOpenStream({960}, 4);
    const auto blocks = hear(2);
    EXPECT_EQ(FakeOutput::Block(1000, 7), blocks[0]);
    EXPECT_EQ(FakeOutput::Block(1920, 7), blocks[1]) << "frames not delivered are not heard later";
    EXPECT_EQ(500U, last->asked()[0]);
    EXPECT_EQ((std::vector<std::string>{"W mixer_thread: threadLoopProcess_l, stream 1 processed "
                                        "500 frames, but 960 required"}),
              mLog.messages());
}

TEST_F(MixerThreadTest, AStreamWithoutDataOrWithAnErrorEmptiesTheBlock) {
    addOpenStream({0, -19, 960}, 1);
    const auto later = addOpenStream({960}, 2);
    const auto blocks = hear(1);
    EXPECT_EQ(FakeOutput::Block(1920, 3), blocks[0]);
    EXPECT_EQ(0U, later->asked()[0]);
    EXPECT_EQ((std::vector<std::string>{"W mixer_thread: threadLoopProcess_l, stream 0 processed "
                                        "-19 frames, but 960 required"}),
              mLog.messages());
}

// Pauses itself, or another stream, in the middle of a cycle, and may open again at once.
struct PausingStream : FakeStream {
    explicit PausingStream(sp<AudioStream> paused) : FakeStream({960}, 7), mPaused(paused) {}
    int process(sp<FrameBuffer> output, size_t frameCount) override {
        (mPaused != nullptr ? mPaused.get() : this)->pause();
        if (mReopens) {
            open();
        }
        return mPaused != nullptr ? FakeStream::process(output, frameCount) : mOwnAnswer;
    }
    const sp<AudioStream> mPaused;
    int mOwnAnswer = -ENODEV;
    bool mReopens = false;
};

TEST_F(MixerThreadTest, APauseInTheMiddleOfACycleCostsNoBlock) {
    const sp<FakeStream> paused(new FakeStream({960}, 100));
    const sp<PausingStream> flushed(new PausingStream(nullptr));
    flushed->mOwnAnswer = 0;
    const sp<PausingStream> reopened(new PausingStream(nullptr));
    reopened->mReopens = true;
    for (const auto& [stream, value] :
         {std::pair{sp<FakeStream>(new PausingStream(paused.get())), 7},
          {paused, 100},
          {sp<FakeStream>(new PausingStream(nullptr)), 0},
          {sp<FakeStream>(flushed.get()), 0},
          {sp<FakeStream>(reopened.get()), 0},
          {sp<FakeStream>(new FakeStream({960}, 30)), 30}}) {
        stream->open();
        ASSERT_EQ(OK, mMixer->addStream(stream.get()));
    }
    EXPECT_EQ(FakeOutput::Block(1920, 37), hear(1)[0]);
    EXPECT_TRUE(paused->asked().empty());
    EXPECT_EQ(0U, mLog.messages().size());
}

TEST_F(MixerThreadTest, MixesNoBlockIfAllPauseInTheMiddleOfACycle) {
    const sp<FakeStream> stream(new PausingStream(nullptr));
    stream->open();
    EXPECT_EQ(OK, mMixer->addStream(stream.get()));
    EXPECT_EQ(OK, mMixer->registerOutput(mOutput.get()));
    EXPECT_TRUE(eventually([&stream] { return !stream->isOpened(); }));
    mMixer->exit();
    EXPECT_EQ(0U, mOutput->blockCount());
}

TEST_F(MixerThreadTest, ADumpNamesAHangingCallbackAndTheRest) {
    addOpenStream({960}, 1);
    hear(1);  // and stays in its callback
    const std::string text = textOf([this](int fd) { EXPECT_EQ(OK, mMixer->dump(fd)); });
    const std::string prefix = "\nIn Callback:    output 0, for ";
    const size_t line = text.find(prefix);
    ASSERT_NE(std::string::npos, line) << text;
    EXPECT_EQ(0U, text.find("MixerThread:    0x"));
    EXPECT_LT(line, text.find("\nAudioStream:     0x"));
    EXPECT_GE(std::stoi(text.substr(line + prefix.size())), 200);
    mOutput->letRun();
    mMixer->unregisterOutput(mOutput.get());
    EXPECT_EQ(std::string::npos, textOf([this](int fd) { mMixer->dump(fd); }).find("In Callback"));
}

TEST_F(MixerThreadTest, TheFirstOutputFixesTheConfigurationForAllStreams) {
    const sp<FakeStream> stream(new FakeStream({0}));
    EXPECT_EQ(OK, mMixer->addStream(stream.get()));
    const sp<FakeOutput> first(new FakeOutput(48000, 3, 3, 2));
    EXPECT_EQ(OK, mMixer->registerOutput(first.get()));
    EXPECT_EQ((std::vector<Config>{{44100, 1, 3}, {48000, 3, 3}}), stream->configs());
    for (const auto& different : {new FakeOutput(44100, 3, 3, 2), new FakeOutput(48000, 1, 3, 2),
                                  new FakeOutput(48000, 3, 1, 2), new FakeOutput(48000, 3, 3, 0)}) {
        const sp<AudioOutput> output(different);
        EXPECT_EQ(-EINVAL, mMixer->registerOutput(output));
        EXPECT_EQ(output->mFlags == 0, mMixer->match(output));
        EXPECT_FALSE(first->match(output));
    }
    EXPECT_FALSE(mMixer->match(nullptr));
    EXPECT_FALSE(first->match(nullptr));
    EXPECT_TRUE(mMixer->match(first.get()));
    EXPECT_EQ(OK, mMixer->registerOutput(first.get())) << "once more changes nothing";
    mMixer->unregisterOutput(first.get());
    EXPECT_TRUE(mMixer->match(first.get()));
    EXPECT_EQ(OK, mMixer->registerOutput(new FakeOutput(96000)));
    EXPECT_EQ((Config{96000, 1, 3}), stream->configs().back());
}

TEST_F(MixerThreadTest, MatchesAndDumpsTheMixThatWasSet) {
    const auto set = [this]() NO_THREAD_SAFETY_ANALYSIS {
        mMixer->set(96000, AUDIO_FORMAT_PCM_16_BIT, 3, 1920);
    };
    set();
    EXPECT_TRUE(mMixer->match(new FakeOutput(96000)));
    EXPECT_NE(std::string::npos,
              textOf([this](int fd) { mMixer->dump(fd); }).find("Rate:    96000"));
    const sp<FakeStream> stream(new FakeStream({0}));
    EXPECT_EQ(OK, mMixer->addStream(stream.get()));
    EXPECT_EQ((Config{96000, 1, 3}), stream->configs().back());
}

TEST_F(MixerThreadTest, RefusesUnreachableOutputsAndChangesNothing) {
    const sp<FakeStream> stream(new FakeStream({0}));
    EXPECT_EQ(OK, mMixer->addStream(stream.get()));
    for (const auto& unreachable :
         {new FakeOutput(0), new FakeOutput(3999), new FakeOutput(768001), new FakeOutput(48000, 5),
          new FakeOutput(48000, 2), new FakeOutput(48000, 1, 1)}) {
        EXPECT_EQ(-EINVAL, mMixer->registerOutput(unreachable));
    }
    EXPECT_EQ(6U, mLog.messages().size());
    EXPECT_EQ(1U, mLog.count("E mixer_thread: registerOutput, unsupported output: sample rate 0, "
                             "format 1, channel mask 3"));
    EXPECT_EQ(1U, stream->configs().size());
    EXPECT_EQ(10'000'000, sleepNs());
    EXPECT_EQ(-EINVAL, mMixer->registerOutput(nullptr));
    // A stream that cannot be configured is not listed either.
    stream->mConfigStatus = -EINVAL;
    const int32_t listed = stream->getStrongCount();
    mMixer->removeStream(stream.get());
    EXPECT_EQ(-EINVAL, mMixer->addStream(stream.get()));
    EXPECT_EQ(-EINVAL, mMixer->addStream(nullptr));
    EXPECT_EQ(listed - 1, stream->getStrongCount());
}

TEST_F(MixerThreadTest, ReconfigurationWhileMixingKeepsWhatTheStreamsHold) {
    // A real stream: its numbered frames come out at once in the new width.
    const sp<AudioStream> stream(
        new AudioStream(48000, AUDIO_FORMAT_PCM_16_BIT, 3, AUDIO_OUTPUT_FLAG_NONE, 2000));
    ASSERT_EQ(OK, mMixer->addStream(stream));
    const std::vector<int16_t> loud(2 * 960, 5);
    stream->write(loud.data(), loud.size() * 2);
    const sp<FakeOutput> output(new FakeOutput(48000, 3));
    EXPECT_EQ(OK, mMixer->registerOutput(output.get()));
    const auto blocks = output->takeBlocks(1);
    std::vector<int16_t> wide(2 * 1920);
    for (size_t i = 0; i < wide.size(); i += 2) {
        wide[i] = 5 * 4096;  // the low half of a little-endian sample
    }
    EXPECT_EQ(wide, blocks[0]);
    output->letRun();
}

TEST(AudioPipeline, ForwardsStreamsParametersAndDumps) {
    const sp<AudioPipeline> pipeline(new AudioPipeline());
    EXPECT_EQ(-EINVAL, pipeline->addAudioStream(nullptr));
    EXPECT_EQ(-EINVAL, pipeline->removeAudioStream(nullptr));
    EXPECT_EQ(-EINVAL, pipeline->registerOutput(nullptr));
    EXPECT_EQ(-EINVAL, pipeline->unregisterOutput(nullptr));
    const sp<FakeStream> stream(new FakeStream({0}));
    ASSERT_EQ(OK, pipeline->addAudioStream(stream.get()));
    EXPECT_EQ(OK, pipeline->setParameters("set_audio_delay=1x"));
    EXPECT_EQ(OK, pipeline->setParameters(nullptr));
    EXPECT_EQ(OK, pipeline->setParameters("a=b;set_audio_delay=-20;c=d"));
    EXPECT_TRUE(eventually([&stream] { return !stream->offsets().empty(); }));
    EXPECT_EQ((std::vector<long>{-20}), stream->offsets());

    EXPECT_EQ(OK, pipeline->registerOutput(new FakeOutput(48000)));
    const std::string text = textOf([&](int fd) { EXPECT_EQ(OK, pipeline->dump(fd)); });
    EXPECT_EQ(0U, text.find("MixerThread:    0x"));
    EXPECT_NE(std::string::npos,
              text.find("\nSample Rate:    48000\nFormat:         0x1\nChannel Mask:   0x3\n"
                        "AudioStream:     0x"))
        << text;
}

}  // namespace
