#pragma once

#include <atomic>
#include <cstring>
#include <type_traits>
#include <vector>

#include "fuzz/soak/SequencedFrames.h"
#include "fuzz/soak/SoakMixer.h"
#include "stream/TunnelStream.h"

struct SoakConfig {
    uint32_t sampleRate;
    audio_format_t format;
    uint32_t channelMask;
    size_t frameCount;  // of the ring
    uint32_t mixRate;   // Hz
};

/**
 * A stream that follows every frame written to it. Without resampling it reads from the mix which
 * frames its chain added: each once and in order, a gap only after a flush or a drop. Base is
 * AudioStream or TunnelStream.
 */
template <typename Base>
class SoakStream : public Base {
public:
    static constexpr bool kIsTunnel = std::is_same_v<Base, android::TunnelStream>;

    SoakStream(SoakMixer& mixer, SoakLedger& ledger, const SoakConfig& config, bool isFollowed,
               bool isWideMix)
        : Base(config.sampleRate, config.format, config.channelMask,
               kIsTunnel ? AUDIO_OUTPUT_FLAG_HW_AV_SYNC : AUDIO_OUTPUT_FLAG_NONE,
               static_cast<uint32_t>(config.frameCount)),
          mMixer(mixer),
          mLedger(ledger),
          mMixRate(config.mixRate),
          mIsFollowed(isFollowed),
          mIsWideMix(isWideMix) {}

    int flush() override {
        ++mDiscardsBegun;
        const int status = Base::flush();
        mGone = mAccepted.load();
        ++mDiscardsEnded;
        return status;
    }
    int close() override {
        ++mDiscardsBegun;
        const int status = Base::close();
        mGone = mAccepted.load();
        ++mDiscardsEnded;
        return status;
    }
    int process(android::sp<android::FrameBuffer> output, size_t frameCount) override {
        if (!mIsFollowed) {
            const int processed = Base::process(output, frameCount);
            const auto frames = static_cast<uint64_t>(std::max(processed, 0));
            mLedger.converted += frames;
            mGone += frames * this->mSampleRate / mMixRate;
            mWasStarved = processed <= 0;
            mMixer.note(this, frames, 0);
            return processed;
        }
        return mIsWideMix ? follow<int32_t>(output, frameCount)
                          : follow<int16_t>(output, frameCount);
    }

    /** The writer knows what it wrote. */
    void accept(uint64_t frameCount) {
        mAccepted += frameCount;
        mLedger.accepted += mIsFollowed ? frameCount : 0;
    }
    uint64_t accepted() const { return mAccepted; }
    /** Frames that fit without a wait, or nearly so. */
    uint64_t room() const {
        const uint64_t held = mAccepted - std::min<uint64_t>(mAccepted, mGone);
        return this->mBufferFrameCount - std::min<uint64_t>(this->mBufferFrameCount, held);
    }
    /** The last pull found nothing: the stream holds up the others. */
    bool wasStarved() const { return mWasStarved; }

    /** With the stream removed and no writer: the frames left come last; a plain stream, closed by
     *  now, has none. */
    void settle() {
        if (!mIsFollowed) {
            return;
        }
        std::vector<uint8_t> rest(1 << 20);
        Base::open();
        const int byteCount = Base::read(rest.data(), rest.size());
        if (!kIsTunnel && byteCount > 0) {
            soakFail("a closed stream holds %d bytes", byteCount);
        }
        const bool isWide = this->mFrameSize == 8;
        const std::vector<uint8_t> nothing(8);
        for (size_t at = 0; at < static_cast<size_t>(std::max(byteCount, 0));
             at += this->mFrameSize) {
            const int64_t number =
                isWide ? SequencedFrames::decode(reinterpret_cast<const int32_t*>(nothing.data()),
                                                 reinterpret_cast<const int32_t*>(&rest[at]))
                       : SequencedFrames::decode(reinterpret_cast<const int16_t*>(nothing.data()),
                                                 reinterpret_cast<const int16_t*>(&rest[at]));
            if (advance(number, true)) {
                mLedger.held += 1;
            }
        }
        if (mNext > mAccepted) {
            soakFail("%zu frames came out of a stream that took %zu", static_cast<size_t>(mNext),
                     static_cast<size_t>(mAccepted.load()));
        }
        skip(mAccepted - mNext, mDiscardsBegun > 0);
        if constexpr (kIsTunnel) {
            Base::close();
        }
    }

private:
    template <typename Sample>
    int follow(const android::sp<android::FrameBuffer>& output, size_t frameCount) {
        void* region = nullptr;
        size_t room = frameCount;
        output->obtainWriteBuffer(&region, room);
        const auto* mix = static_cast<const Sample*>(region);
        const std::vector<Sample> before(mix, mix + 2 * room);
        const uint64_t ended = mDiscardsEnded;
        const int processed = Base::process(output, frameCount);
        const bool mayJump = mDiscardsBegun > mSeenDiscards;
        mSeenDiscards = processed > 0 ? ended : mSeenDiscards;
        mWasStarved = processed <= 0;
        size_t followed = 0;
        for (int i = 0; i < processed; ++i) {
            followed += advance(SequencedFrames::decode(&before[2 * i], mix + 2 * i), mayJump);
        }
        mGone = mNext;
        mMixer.note(this, static_cast<size_t>(std::max(processed, 0)), followed);
        return processed;
    }

    // Checks one frame; false for silence from AV sync.
    bool advance(int64_t number, bool mayJump) {
        if (number == SequencedFrames::kSilence && kIsTunnel) {
            return false;
        }
        if (number < 0) {
            soakFail("a frame came out that nobody wrote");
        }
        const uint64_t ahead = (static_cast<uint64_t>(number) + SequencedFrames::kPeriod -
                                mNext % SequencedFrames::kPeriod) %
                               SequencedFrames::kPeriod;
        if (ahead > SequencedFrames::kPeriod / 2) {
            soakFail("frame %zu came again, or before its turn", static_cast<size_t>(mNext));
        }
        skip(ahead, mayJump);
        mNext += 1;
        return true;
    }

    void skip(uint64_t frameCount, bool mayJump) {
        if (frameCount == 0) {
            return;
        }
        if (!kIsTunnel && !mayJump) {
            soakFail("%zu frames lost after frame %zu", static_cast<size_t>(frameCount),
                     static_cast<size_t>(mNext));
        }
        (kIsTunnel ? mLedger.dropped : mLedger.flushed) += frameCount;
        mNext += frameCount;
    }

    SoakMixer& mMixer;
    SoakLedger& mLedger;
    const uint32_t mMixRate;
    const bool mIsFollowed;
    const bool mIsWideMix;
    std::atomic<uint64_t> mDiscardsBegun{0};
    std::atomic<uint64_t> mDiscardsEnded{0};
    std::atomic<uint64_t> mAccepted{0};  // the writer adds
    std::atomic<bool> mWasStarved{false};
    std::atomic<uint64_t> mGone{0};  // out of the ring, an estimate for the writer
    uint64_t mSeenDiscards = 0;      // worker
    uint64_t mNext = 0;              // worker, then settle()
};
