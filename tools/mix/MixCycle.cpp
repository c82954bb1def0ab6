#include "tools/mix/MixCycle.h"

#include <algorithm>

#include "tools/process/ToolError.h"

namespace android {

namespace {

constexpr std::chrono::milliseconds kPatience{1000};
// How long a write to a staged input may stand before its buffer counts as full.
constexpr std::chrono::milliseconds kStagedPatience{30};
constexpr std::chrono::milliseconds kFlushInterval{5};

std::vector<const Handover*> handoversOf(const std::vector<MixInput*>& inputs) {
    std::vector<const Handover*> handovers;
    for (const MixInput* input : inputs) {
        handovers.push_back(&input->handover);
    }
    return handovers;
}

}  // namespace

MixCycle::MixCycle(const Library& library, FeedBoard& board, std::vector<MixInput*> inputs,
                   MixOutput& output, const Config& config)
    : mLibrary(library),
      mBoard(board),
      mOutput(output),
      mConfig(config),
      mBlockFrames(blockFrames(config.rateHz)),
      mVoices(inputs.size()),
      mLoss(handoversOf(inputs), mBlockFrames) {
    for (size_t index = 0; index < inputs.size(); ++index) {
        mVoices[index].input = inputs[index];
    }
}

void MixCycle::start() {
    for (size_t index = 0; index < mVoices.size(); ++index) {
        Voice& voice = mVoices[index];
        setGain(voice, voice.input->spec.gainAt(0.0));
        mBoard.demand(index, nextDemand(voice));
    }
}

int MixCycle::onBlock(void* cookie, void* buffer, size_t byteCount) {
    auto* self = static_cast<MixCycle*>(cookie);
    const size_t frameBytes = self->mConfig.bits == 16 ? 4 : 8;
    try {
        self->deliver(buffer, static_cast<int64_t>(byteCount / frameBytes));
    } catch (const std::exception& error) {
        self->mBoard.end(FeedBoard::State::FAILED, error.what());
    }
    if (self->mConfig.recorder != nullptr) {
        self->mConfig.recorder->endBlock();
    }
    if (!self->mBoard.isRunning()) {
        self->pauseAll();
    }
    return 0;
}

void MixCycle::deliver(const void* buffer, int64_t frameCount) {
    if (!mBoard.isRunning()) {
        return;
    }
    if (mDeliveredCount == 0) {
        mStartTime = std::chrono::steady_clock::now();
    }
    mDeliveredCount += 1;
    if (mMixedFrames + frameCount > mConfig.preRollFrames) {
        mBlockCount += 1;
        if (frameCount < mBlockFrames) {
            countShortBlock(frameCount);
        }
    }
    // Counted before a device plays it: the inputs fill up meanwhile, and someone may be looking.
    const int64_t blockStart = mMixedFrames.fetch_add(frameCount);
    if (mConfig.recorder != nullptr) {
        mConfig.recorder->beginBlock(blockStart, frameCount);
    }
    write(buffer, frameCount, blockStart);
    if (!mBoard.isRunning()) {
        return;
    }

    bool isOver = true;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        Voice& voice = mVoices[index];
        if (voice.endFrame < 0 && !pauseIfOver(index)) {
            applyGains(voice);
            mBoard.demand(index, nextDemand(voice));
            isOver = false;
        }
    }
    if (isOver) {
        mBoard.end(FeedBoard::State::FINISHED);
        return;
    }
    feedInputs();
    waitForInputs();
    recordFills();
    pace();
}

void MixCycle::countShortBlock(int64_t frameCount) {
    mShortBlockCount += 1;
    std::vector<BlockLoss::State> states;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        const Handover& handover = mVoices[index].input->handover;
        const int64_t takenFrames =
            framesAtRate(mMixedFrames, handover.mixRateHz, handover.config.sample_rate) +
            mLoss.maxLostFrames(index);
        const int64_t audioEnd = mBoard.input(index).audioEndFrame;
        states.push_back(mVoices[index].endFrame >= 0               ? BlockLoss::State::CLOSED
                         : audioEnd >= 0 && takenFrames >= audioEnd ? BlockLoss::State::PADDING
                                                                    : BlockLoss::State::PLAYING);
    }
    mLoss.add(states, frameCount);
}

/** The part of the block between the pre-roll and the end of the last input. */
void MixCycle::write(const void* buffer, int64_t frameCount, int64_t blockStart) {
    int64_t endFrame = 0;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        const int64_t audioEnd = mBoard.input(index).audioEndFrame;
        endFrame =
            std::max(endFrame, audioEnd < 0 ? INT64_MAX
                                            : mVoices[index].input->handover.mixFramesOf(audioEnd));
    }
    const int64_t from = std::clamp<int64_t>(mConfig.preRollFrames - blockStart, 0, frameCount);
    const int64_t to = std::clamp<int64_t>(endFrame - blockStart, 0, frameCount);
    checkLevels({.samples = static_cast<const int16_t*>(buffer),
                 .frameCount = frameCount,
                 .heardBegin = from,
                 .heardEnd = std::max(from, to),
                 .heardFrame = blockStart + from - mConfig.preRollFrames});
    if (to > from) {
        const int64_t frameBytes = mConfig.bits == 16 ? 4 : 8;
        const uint8_t* frames = static_cast<const uint8_t*>(buffer) + from * frameBytes;
        if (mConfig.recorder != nullptr) {
            mConfig.recorder->heard(frames, to - from);
        }
        const bool isWanted = mOutput.write(frames, static_cast<size_t>(to - from));
        // Without a device that holds it back, the mix would run far ahead before anyone else looks.
        if (!isWanted) {
            mBoard.end(FeedBoard::State::STOPPED);
        }
    }
}

void MixCycle::checkLevels(const SumCheck::Block& block) {
    if (mConfig.overload != nullptr) {
        const auto* samples = reinterpret_cast<const int32_t*>(block.samples);
        mConfig.overload->addQ27(block.heardFrame, samples + block.heardBegin * 2,
                                 block.heardEnd - block.heardBegin);
    }
    if (mConfig.sums != nullptr) {
        std::vector<bool> isOpen;
        for (const Voice& voice : mVoices) {
            isOpen.push_back(voice.endFrame < 0);
        }
        mConfig.sums->check(block, isOpen);
    }
}

void MixCycle::applyGains(Voice& voice) {
    const auto& changes = voice.input->spec.gainChanges;
    // A gain changes between blocks, at the one that starts nearest.
    const int64_t middleFrame = mMixedFrames - mConfig.preRollFrames + mBlockFrames / 2;
    const double nowSec = static_cast<double>(middleFrame) / mConfig.rateHz;
    while (voice.nextGainChange < changes.size() &&
           changes[voice.nextGainChange].timeSec <= nowSec) {
        setGain(voice, changes[voice.nextGainChange].gain);
        ++voice.nextGainChange;
    }
}

void MixCycle::setGain(const Voice& voice, float gain) {
    const InputSpec& spec = voice.input->spec;
    if (InputTrack* track = trackOf(voice)) {
        track->addGain({.timeSec = mConfig.recorder->secondsOf(mMixedFrames),
                        .left = spec.leftGain(gain),
                        .right = spec.rightGain(gain)});
    }
    if (mConfig.sums != nullptr) {
        mConfig.sums->voice(static_cast<size_t>(&voice - mVoices.data()))
            .setGain(spec.leftGain(gain), spec.rightGain(gain));
    }
    mLibrary.setStreamVolume(voice.input->stream, spec.leftGain(gain), spec.rightGain(gain));
}

/** Where it is written down; null without a report. */
InputTrack* MixCycle::trackOf(const Voice& voice) const {
    return mConfig.recorder == nullptr
               ? nullptr
               : &mConfig.recorder->input(static_cast<size_t>(&voice - mVoices.data()));
}

/** Pauses an input that was heard to its end; its feeder is not writing then. */
bool MixCycle::pauseIfOver(size_t index) {
    const FeedBoard::Input state = mBoard.input(index);
    const Handover& handover = mVoices[index].input->handover;
    const bool isHeard =
        state.audioEndFrame >= 0 &&
        mMixedFrames >= framesAtRate(state.audioEndFrame + handover.marginFrames,
                                     handover.config.sample_rate, handover.mixRateHz);
    return isHeard && pause(index);
}

bool MixCycle::pause(size_t index) {
    if (!mBoard.setPaused(index)) {
        return false;
    }
    mLibrary.pauseStream(mVoices[index].input->stream);
    mVoices[index].endFrame = mMixedFrames.load();
    if (InputTrack* track = trackOf(mVoices[index])) {
        track->setPause(mConfig.recorder->secondsOf(mMixedFrames));
    }
    return true;
}

/**
 * Ends the mix early, with no stream left to run dry in a further cycle. What is in the buffers is
 * not to be heard any more; without it, writes under way find their room.
 */
void MixCycle::pauseAll() {
    do {
        for (const Voice& voice : mVoices) {
            if (voice.endFrame < 0) {
                mLibrary.flushStream(voice.input->stream);
            }
        }
    } while (!mBoard.waitUntilIdle(kFlushInterval));
    for (size_t index = 0; index < mVoices.size(); ++index) {
        if (mVoices[index].endFrame < 0) {
            pause(index);
        }
    }
}

void MixCycle::demandMore() {
    for (size_t index = 0; index < mVoices.size(); ++index) {
        const Handover& handover = mVoices[index].input->handover;
        if (handover.isStaged()) {
            mBoard.demandMore(index, handover.framesNeeded(mBlockFrames));
        }
    }
}

int64_t MixCycle::nextDemand(Voice& voice) const {
    const Handover& handover = voice.input->handover;
    if (!handover.isStaged()) {
        return handover.framesNeeded(mMixedFrames + mBlockFrames);
    }
    // The first stage takes a block of the mix's length each time. Where the rate falls, all of it
    // is used up; where it rises, the buffer behind the stage fills until it has less room.
    const int64_t convertedFrames =
        framesAtRate(mMixedFrames, handover.mixRateHz, handover.config.sample_rate);
    const int64_t room = handover.bufferFrames - (voice.pulledFrames - convertedFrames);
    voice.pulledFrames +=
        handover.deliversShort() ? mBlockFrames : std::clamp<int64_t>(room, 0, mBlockFrames);
    return voice.pulledFrames + handover.marginFrames;
}

void MixCycle::feedInputs() {
    for (size_t index = 0; index < mVoices.size(); ++index) {
        const Voice& voice = mVoices[index];
        if (voice.feeder && voice.endFrame < 0) {
            const auto begin = std::chrono::steady_clock::now();
            voice.feeder->fill(mBoard.input(index).demandFrames);
            noteLate(index, std::chrono::steady_clock::now() - begin);
        }
    }
}

void MixCycle::noteLate(size_t index, std::chrono::nanoseconds wait) {
    Voice& voice = mVoices[index];
    // What runs in front is heard nowhere, nor is a pause in it.
    if (mMixedFrames < mConfig.preRollFrames || !voice.lateness.add(wait)) {
        return;
    }
    if (InputTrack* track = trackOf(voice)) {
        track->addDelay(mConfig.recorder->secondsOf(mMixedFrames), wait.count());
    }
}

void MixCycle::recordFills() {
    for (size_t index = 0; index < mVoices.size(); ++index) {
        InputTrack* const track = trackOf(mVoices[index]);
        if (track != nullptr && mVoices[index].endFrame < 0) {
            track->addFill(mConfig.recorder->secondsOf(mMixedFrames), bufferFill(index));
        }
    }
}

std::vector<size_t> MixCycle::unfedInputs() const {
    std::vector<size_t> unfed;
    for (size_t index = 0; index < mVoices.size(); ++index) {
        const FeedBoard::Input input = mBoard.input(index);
        if (!input.isPaused && input.writtenFrames < input.demandFrames) {
            unfed.push_back(index);
        }
    }
    return unfed;
}

/** The wait is that of each input that lacked a block, up to the write that brought it. */
void MixCycle::waitForInputs() {
    const std::vector<size_t> unfed = unfedInputs();
    const auto begin = std::chrono::steady_clock::now();
    waitUntilFed();
    for (const size_t index : unfed) {
        const FeedBoard::Input input = mBoard.input(index);
        const bool isFed = input.writtenFrames >= input.demandFrames;
        noteLate(index, (isFed ? input.lastWriteTime : std::chrono::steady_clock::now()) - begin);
    }
}

void MixCycle::waitUntilFed() {
    const bool hasStaged = std::any_of(mVoices.begin(), mVoices.end(), [](const Voice& voice) {
        return voice.endFrame < 0 && voice.input->handover.isStaged();
    });
    while (!mBoard.waitUntilFed(hasStaged ? kStagedPatience : kPatience)) {
        feedInputs();  // more may have been demanded, see demandMore()
        // A staged input may have given less than was thought, in a block that another one cut
        // short. Its buffer is full then: what it holds is a block, and says where it stands.
        for (size_t index = 0; index < mVoices.size(); ++index) {
            Voice& voice = mVoices[index];
            const FeedBoard::Input state = mBoard.input(index);
            if (voice.input->handover.isStaged() && state.isWriting &&
                state.writtenFrames < state.demandFrames) {
                voice.pulledFrames =
                    std::max<int64_t>(state.writtenFrames - voice.input->handover.bufferFrames, 0);
                mBoard.demand(index, state.writtenFrames);
            }
        }
    }
}

void MixCycle::pace() {
    if (mConfig.isRealTime) {
        const auto played = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(static_cast<double>(mMixedFrames) / mConfig.rateHz));
        mBoard.waitUntil(mStartTime + played);
    }
}

/** Of frames that the stream took, those that the mix has got on by are not lost. */
int64_t MixCycle::maxLostFrames(size_t index) const {
    const Voice& voice = mVoices[index];
    const MixInput& input = *voice.input;
    const int64_t written = mBoard.input(index).writtenFrames;
    const int64_t mixFrame = voice.endFrame >= 0 ? voice.endFrame.load() : mMixedFrames.load();
    const int64_t mixed = mixFrame * input.handover.config.sample_rate / input.handover.mixRateHz;
    const int64_t most =
        std::min(std::max<int64_t>(written - mixed, 0), input.audioFramesOf(written));
    return std::min(mLoss.maxLostFrames(index), most);
}

double MixCycle::bufferFill(size_t index) const {
    const Handover& handover = mVoices[index].input->handover;
    const int64_t takenFrames =
        framesAtRate(mMixedFrames, handover.mixRateHz, handover.config.sample_rate);
    const auto heldFrames = static_cast<double>(mBoard.input(index).writtenFrames - takenFrames);
    return std::clamp(heldFrames / static_cast<double>(handover.bufferFrames), 0.0, 1.0);
}

int64_t MixCycle::heardFrames(size_t index) const {
    const Voice& voice = mVoices[index];
    const MixInput& input = *voice.input;
    const Handover& handover = input.handover;
    const int64_t mixFrame = voice.endFrame >= 0 ? voice.endFrame.load() : mMixedFrames.load();
    const int64_t ownFrame =
        mixFrame * handover.config.sample_rate / handover.mixRateHz - handover.delayFrames;
    const int64_t audioEnd = mBoard.input(index).audioEndFrame;
    const int64_t reached =
        (audioEnd < 0 ? ownFrame : std::min(ownFrame, audioEnd)) - input.source.silentFrames();
    return std::max<int64_t>(reached - maxLostFrames(index), 0);
}

}  // namespace android
