#include "tools/mix/MixSession.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/audio/StreamConfig.h"
#include "tools/host/Properties.h"
#include "tools/process/ToolError.h"

namespace android {

MixSession::MixSession(const Library& library, const std::vector<MixInput*>& inputs,
                       MixOutput& output, const Config& config)
    : mLibrary(library),
      mInputs(inputs),
      mConfig(config),
      mBoard(inputs.size()),
      mCycle(library, mBoard, inputs, output,
             {.rateHz = config.rateHz,
              .bits = config.bits,
              .isRealTime = config.isRealTime,
              .preRollFrames = config.preRollFrames,
              .recorder = config.recorder,
              .sums = config.sums,
              .overload = config.overload}) {
    mMixConfig.sample_rate = config.rateHz;
    mMixConfig.format = formatOf(config.bits);
    mMixConfig.channel_mask = STREAMPROXY_CHANNEL_MASK_STEREO;
}

MixSession::~MixSession() {
    stop();
}

void MixSession::start() {
    mPipeline = mLibrary.createPipeline();
    if (!mPipeline) {
        throw ToolError("the library made no pipeline; see its log with --log debug");
    }
    fixMixConfig();
    for (MixInput* input : mInputs) {
        createStream(*input);
    }
    mCycle.start();
    for (size_t index = 0; index < mInputs.size(); ++index) {
        MixInput& input = *mInputs[index];
        mFeeders.push_back(std::make_unique<Feeder>(
            mLibrary, mBoard, input.source, input.handover,
            Feeder::Target{
                .index = index,
                .name = input.spec.path,
                .stream = input.stream,
                .track = mConfig.recorder != nullptr ? &mConfig.recorder->input(index) : nullptr,
                .sum = mConfig.sums != nullptr ? &mConfig.sums->voice(index) : nullptr}));
        mFeeders.back()->fill(mBoard.input(index).demandFrames);
    }
    for (size_t index = 0; index < mInputs.size(); ++index) {
        // Where someone listens, a slow disk must not hold the mix up. A write to a staged input may
        // have to wait for the next block, which the mixer thread can't.
        const MixInput& input = *mInputs[index];
        if (mConfig.isHeardLive || input.source.mayWait() || input.handover.isStaged()) {
            mFeeders[index]->start();
        } else {
            mCycle.feed(index, *mFeeders[index]);
        }
    }
    registerOutput();
}

void MixSession::fixMixConfig() {
    const int status = mLibrary.registerOutput(mPipeline, &mMixConfig, &mMixConfig, nullptr);
    if (status != 0) {
        throw ToolError(
            fmt::format("the library refuses to mix at {} Hz, {} bits (status {}); choose another "
                        "--rate or --format",
                        mConfig.rateHz, mConfig.bits, status));
    }
    mLibrary.unregisterOutput(mPipeline, &mMixConfig, nullptr);
}

void MixSession::createStream(MixInput& input) const {
    setProperty(kBufferFramesProperty, std::to_string(input.handover.bufferFrames));
    input.stream = mLibrary.createStream(&input.handover.config);
    if (!input.stream) {
        throw ToolError(input.spec.path + ": the library makes no stream of " +
                        input.reader->describe() + "; see its log with --log debug");
    }
}

void MixSession::registerOutput() {
    const int status = mLibrary.registerOutput(mPipeline, &mMixConfig, &mCycle, &MixCycle::onBlock);
    if (status != 0) {
        throw ToolError(fmt::format("the library refuses the output (status {})", status));
    }
    mHasOutput = true;
}

void MixSession::stop() {
    mBoard.end(FeedBoard::State::STOPPED);
    for (MixInput* input : mInputs) {
        input->reader->cancel();
    }
    for (auto& feeder : mFeeders) {
        feeder->join();
    }
    if (mHasOutput) {
        mLibrary.unregisterOutput(mPipeline, &mCycle, &MixCycle::onBlock);
        mHasOutput = false;
    }
    for (MixInput* input : mInputs) {
        if (input->stream) {
            // Closing waits for the mixer to take what is left, and nothing mixes any more.
            mLibrary.flushStream(input->stream);
            mLibrary.destroyStream(input->stream);
            input->stream = nullptr;
        }
    }
    if (mPipeline) {
        mLibrary.destroyPipeline(mPipeline);
        mPipeline = nullptr;
    }
}

void MixSession::dump(int fd) const {
    mLibrary.dumpPipeline(mPipeline, fd);
}

}  // namespace android
